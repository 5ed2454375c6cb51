# The device build: 32-bit ARM (armhf) with Debian's cross compiler, against
# the sysroot that scripts/armhf-sysroot makes. Tests run under qemu-arm in
# that sysroot; the host's dbus-daemon serves their private bus.
#
#   cmake -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/armhf.toolchain.cmake ...
#
# ARMHF_SYSROOT overrides the sysroot's place (default: build-armhf-sysroot
# beside the sources).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

if(NOT ARMHF_SYSROOT)
  if(DEFINED ENV{ARMHF_SYSROOT})
    set(ARMHF_SYSROOT "$ENV{ARMHF_SYSROOT}")
  else()
    get_filename_component(ARMHF_SYSROOT
      "${CMAKE_CURRENT_LIST_DIR}/../build-armhf-sysroot" ABSOLUTE)
  endif()
endif()
if(NOT EXISTS "${ARMHF_SYSROOT}/usr/include/stdio.h")
  message(FATAL_ERROR "No armhf sysroot at ${ARMHF_SYSROOT}: run scripts/armhf-sysroot")
endif()
# Try-compile projects get the toolchain file again, without the cache.
set(ENV{ARMHF_SYSROOT} "${ARMHF_SYSROOT}")
set(CMAKE_SYSROOT "${ARMHF_SYSROOT}")

# Headers, libraries and packages from the sysroot only; programs (protoc,
# the code generators) from the host.
set(CMAKE_FIND_ROOT_PATH "${ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} "${ARMHF_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
  "${ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${ARMHF_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# 64-bit file offsets: directory offsets that do not fit 32 bits (ext4's
# hashes as qemu-user on a 64-bit host passes them on, NFS) make a 32-bit
# readdir() fail with EOVERFLOW. time_t stays 32-bit: Debian 12's armhf
# libraries (glog's log time among them) are built with it.
# -Wno-psabi: GCC 7.1 changed how some arguments are passed on ARM; nothing
# here mixes code from before that, and the notes would bury real warnings.
set(CMAKE_C_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -Wno-psabi")
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -Wno-psabi")

# Test programs run under qemu-user-static: being static, it is not touched
# by the LD_PRELOAD and LD_LIBRARY_PATH that tests set for the program it
# runs. QEMU_LD_PREFIX, unlike -L, reaches the armhf programs they start in
# turn (through binfmt_misc, see scripts/armhf-deps).
find_program(ARMHF_QEMU qemu-arm-static REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR
  "/usr/bin/env;QEMU_LD_PREFIX=${ARMHF_SYSROOT};${ARMHF_QEMU}")
