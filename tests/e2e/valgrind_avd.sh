#!/bin/sh
# Stands in for avd under the simulator: the daemon named by
# AVD_UNDER_VALGRIND, run by valgrind's memcheck. A memory error or a
# definite leak ends it with status 99; valgrind's report goes to the
# daemon's stderr, which the simulator shows as "avd: ..." lines.
exec valgrind --quiet --error-exitcode=99 --leak-check=full \
  --show-leak-kinds=definite --errors-for-leak-kinds=definite \
  "$AVD_UNDER_VALGRIND" "$@"
