# Code generation for 32-bit ARM (ARMv7-A with NEON), shared by every ARM
# toolchain of the project so that the Linux armhf build that runs the tests
# under emulation compiles the sources exactly as the Android build does.
# The float ABI is the platform's and is left to each toolchain: hard-float
# on Linux armhf, softfp on Android armeabi-v7a (the NDK sets it).
#
# Included from toolchain files, before the compilers are tested, so the
# flags reach every target, dependencies built from source included.
set(LARKSPIN_ARMV7_NEON_FLAGS "-march=armv7-a -mfpu=neon")

# Appends flags to the initial compiler flags once: toolchain files are read
# more than once per configure.
macro(larkspin_append_init_flags flags)
  foreach(_lang C CXX ASM)
    string(FIND " ${CMAKE_${_lang}_FLAGS_INIT} " " ${flags} " _at)
    if(_at EQUAL -1)
      string(APPEND CMAKE_${_lang}_FLAGS_INIT " ${flags}")
    endif()
  endforeach()
  unset(_lang)
  unset(_at)
endmacro()

larkspin_append_init_flags("${LARKSPIN_ARMV7_NEON_FLAGS}")
