# Toolchain: cross-compiles for 64-bit Arm against Debian's packages in CSRT_SYSROOT; what is built runs under qemu.
# tools/platform-arm64.sh makes the sysroot and uses this file.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CSRT_SYSROOT)

set(CMAKE_SYSROOT ${CSRT_SYSROOT})
set(CMAKE_FIND_ROOT_PATH ${CSRT_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${CSRT_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${CSRT_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CSRT_SYSROOT})

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64;-L;${CSRT_SYSROOT})
