# Cross build for the gateway's 32-bit ARM (Debian armhf), with the compiler
# and libraries scripts/install-deps.sh --armhf installs. What it builds runs
# on this machine under qemu; tests and the end-to-end harness use the same.
#
#   cmake -S . -B build-armhf -G Ninja --toolchain cmake/armhf.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# libupnp's development files live apart from the native ones (see
# scripts/install-deps.sh); the others are Debian's armhf packages.
set(DMSD_ARMHF_UPNP /opt/armhf/libupnp-dev CACHE PATH "Unpacked libupnp-dev:armhf")
set(ENV{PKG_CONFIG_LIBDIR}
    "${DMSD_ARMHF_UPNP}/usr/lib/arm-linux-gnueabihf/pkgconfig:/usr/lib/arm-linux-gnueabihf/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# Programs load the armhf libc that Debian's armhf libraries come with, from
# the host's own /lib/arm-linux-gnueabihf: the cross compiler's copy under
# /usr/arm-linux-gnueabihf is an older build, and its loader with the newer
# libc crashes the first thread a program starts.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static;-L;/)
