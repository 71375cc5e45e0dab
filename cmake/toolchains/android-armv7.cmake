# Android armeabi-v7a with NEON through the NDK's own toolchain file, e.g.
#   ANDROID_NDK_HOME=/path/to/ndk cmake --preset android-armv7
# The NDK is taken from ANDROID_NDK_HOME, else ANDROID_NDK_ROOT, else the
# CMake variable ANDROID_NDK. The ABI settings below are defaults that the
# preset or the command line may override.
if(NOT "$ENV{ANDROID_NDK_HOME}" STREQUAL "")
  set(LARKSPIN_ANDROID_NDK "$ENV{ANDROID_NDK_HOME}")
elseif(NOT "$ENV{ANDROID_NDK_ROOT}" STREQUAL "")
  set(LARKSPIN_ANDROID_NDK "$ENV{ANDROID_NDK_ROOT}")
elseif(ANDROID_NDK)
  set(LARKSPIN_ANDROID_NDK "${ANDROID_NDK}")
else()
  message(FATAL_ERROR "Android build: set ANDROID_NDK_HOME or ANDROID_NDK_ROOT to the NDK's directory")
endif()
if(NOT EXISTS "${LARKSPIN_ANDROID_NDK}/build/cmake/android.toolchain.cmake")
  message(FATAL_ERROR "No NDK at '${LARKSPIN_ANDROID_NDK}' (build/cmake/android.toolchain.cmake is missing)")
endif()

if(NOT ANDROID_ABI)
  set(ANDROID_ABI armeabi-v7a)
endif()
if(NOT DEFINED ANDROID_ARM_NEON)
  set(ANDROID_ARM_NEON ON)
endif()
if(NOT ANDROID_PLATFORM)
  set(ANDROID_PLATFORM android-21)
endif()
# The C++ runtime is linked in and hidden by the version script, so the app
# ships liblarkspin.so alone; no C++ type crosses the public interface.
if(NOT ANDROID_STL)
  set(ANDROID_STL c++_static)
endif()

include("${LARKSPIN_ANDROID_NDK}/build/cmake/android.toolchain.cmake")
include(${CMAKE_CURRENT_LIST_DIR}/../LarkspinArmv7Neon.cmake)

# The host's pkg-config files describe host libraries; an empty search path
# makes the KissFFT lookup fall through to an NDK-built package or its source.
set(ENV{PKG_CONFIG_LIBDIR} "")
set(ENV{PKG_CONFIG_PATH} "")
