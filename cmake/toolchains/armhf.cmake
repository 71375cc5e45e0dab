# Cross build for Linux on 32-bit ARM (armhf: ARMv7-A, NEON, hard-float) with
# Debian's cross compiler against Debian's multiarch armhf packages, e.g.
#   cmake --preset armhf
# or cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/armhf.cmake ...
# Programs run under qemu-arm, so CTest runs the tests and the benchmarks run
# as they are on a workstation. scripts/install-deps --arm installs all this.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(LARKSPIN_ARMHF_TRIPLE arm-linux-gnueabihf)
# GCC unless a toolchain file that includes this one chose another compiler.
if(NOT CMAKE_C_COMPILER)
  set(CMAKE_C_COMPILER ${LARKSPIN_ARMHF_TRIPLE}-gcc)
  set(CMAKE_CXX_COMPILER ${LARKSPIN_ARMHF_TRIPLE}-g++)
endif()
# Multiarch: armhf libraries live in /usr/lib/arm-linux-gnueabihf of the host
# root; CMake's find_* commands look there once they know the architecture.
set(CMAKE_LIBRARY_ARCHITECTURE ${LARKSPIN_ARMHF_TRIPLE})

include(${CMAKE_CURRENT_LIST_DIR}/../LarkspinArmv7Neon.cmake)
larkspin_append_init_flags("-mfloat-abi=hard")

# pkg-config must see only the armhf .pc files (plus the architecture
# independent ones), never the host's.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/${LARKSPIN_ARMHF_TRIPLE}/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")
unset(ENV{PKG_CONFIG_SYSROOT_DIR})

# Programs run on Debian's multiarch armhf runtime (libc6:armhf and
# libstdc++6:armhf, which the armhf library packages depend on anyway), so
# the program interpreter, the C library and the other libraries always come
# from one glibc build. qemu-arm -L /usr/arm-linux-gnueabihf would take the
# interpreter from the cross toolchain's copy of glibc while the loader still
# finds the multiarch libc.so.6; once the two versions drift apart (a security
# update of one of them) programs that start threads crash.
find_program(LARKSPIN_QEMU_ARM qemu-arm)
if(LARKSPIN_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${LARKSPIN_QEMU_ARM})
endif()
