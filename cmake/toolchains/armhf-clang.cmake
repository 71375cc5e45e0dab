# The armhf cross build (armhf.cmake) compiled by clang, the compiler of the
# Android NDK: its warnings, which are errors here, and its code generation
# for ARMv7-A with NEON are checked, and the tests run under qemu-arm, without
# the NDK. Headers, C runtime and linking come from Debian's armhf GCC cross
# toolchain, which clang finds by the target triple.
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET arm-linux-gnueabihf)
set(CMAKE_CXX_COMPILER_TARGET arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/armhf.cmake)
