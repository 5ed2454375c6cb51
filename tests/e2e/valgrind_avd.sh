#!/bin/sh
# Stands in for avd under the simulator: the daemon named by
# AVD_UNDER_VALGRIND, run by valgrind's memcheck. A memory error or a
# definite leak ends it with status 99; valgrind's report goes to the
# daemon's stderr, which the simulator shows as "avd: ...".
#
# AVD_VALGRIND_ROOT, when set, is the root of the valgrind to use: the
# target's sysroot in a cross build, whose valgrind qemu runs as it runs
# the daemon. Its tools are then found through VALGRIND_LIB, since qemu
# hands their absolute path to the host as it stands.
root=${AVD_VALGRIND_ROOT:-}
if [ -n "$root" ]; then
  export VALGRIND_LIB="$root/usr/libexec/valgrind"
fi
exec "$root/usr/bin/valgrind" --quiet --error-exitcode=99 --leak-check=full \
  --show-leak-kinds=definite --errors-for-leak-kinds=definite \
  "$AVD_UNDER_VALGRIND" "$@"
