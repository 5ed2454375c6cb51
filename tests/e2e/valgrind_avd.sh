#!/bin/sh
# Stands in for avd under the simulator: AVD_UNDER_VALGRIND under memcheck,
# ending with status 99 on a memory error or a definite leak. A cross build
# sets AVD_VALGRIND_ROOT to the target's sysroot, whose tools qemu then finds
# through VALGRIND_LIB.
root=${AVD_VALGRIND_ROOT:-}
if [ -n "$root" ]; then
  export VALGRIND_LIB="$root/usr/libexec/valgrind"
fi
exec "$root/usr/bin/valgrind" --quiet --error-exitcode=99 --leak-check=full \
  --show-leak-kinds=definite --errors-for-leak-kinds=definite \
  "$AVD_UNDER_VALGRIND" "$@"
