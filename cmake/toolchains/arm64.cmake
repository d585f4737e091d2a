# Debian's cross compiler for arm64, and a Debian arm64 system to compile and link against, which scripts/cross-test
# makes. PLIM_SYSROOT in the environment names another one.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

if(DEFINED ENV{PLIM_SYSROOT})
    set(CMAKE_SYSROOT $ENV{PLIM_SYSROOT})
elseif(DEFINED ENV{XDG_CACHE_HOME})
    set(CMAKE_SYSROOT $ENV{XDG_CACHE_HOME}/plim-ble/sysroot-arm64)
else()
    set(CMAKE_SYSROOT $ENV{HOME}/.cache/plim-ble/sysroot-arm64)
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

# Programs for arm64 run here under emulation.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L ${CMAKE_SYSROOT})
