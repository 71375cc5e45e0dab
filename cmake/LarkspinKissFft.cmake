# Single-precision KissFFT for the engine, as the target larkspin::kissfft.
#
# Where it comes from is chosen by LARKSPIN_KISSFFT_SOURCE:
#   AUTO   (default) the installed library if there is one, else the source
#   SYSTEM only the installed library: pkg-config's kissfft-float (Debian's
#          libkissfft-dev, native or a multiarch cross package), else the
#          CMake package kissfft built for float
#   FETCH  only the source of a pinned release, fetched at configure time and
#          compiled into a static, position-independent archive that is folded
#          into liblarkspin.so. This is what an Android build uses, where no
#          installed copy exists.
# Either way the engine sees the same headers (<kiss_fftr.h>) and the same
# kiss_fft_scalar=float.
include_guard(GLOBAL)

set(LARKSPIN_KISSFFT_SOURCE "AUTO" CACHE STRING "Where KissFFT comes from: AUTO, SYSTEM or FETCH")
set_property(CACHE LARKSPIN_KISSFFT_SOURCE PROPERTY STRINGS AUTO SYSTEM FETCH)
set(LARKSPIN_KISSFFT_GIT_REPOSITORY "https://github.com/mborgerding/kissfft.git"
  CACHE STRING "Repository that LARKSPIN_KISSFFT_SOURCE=FETCH clones")
set(LARKSPIN_KISSFFT_GIT_TAG "131.1.0" CACHE STRING "Release tag of KissFFT that is fetched")
if(NOT LARKSPIN_KISSFFT_SOURCE MATCHES "^(AUTO|SYSTEM|FETCH)$")
  message(FATAL_ERROR "LARKSPIN_KISSFFT_SOURCE must be AUTO, SYSTEM or FETCH, not '${LARKSPIN_KISSFFT_SOURCE}'")
endif()

add_library(larkspin_kissfft INTERFACE)
add_library(larkspin::kissfft ALIAS larkspin_kissfft)

set(_larkspin_kissfft_found FALSE)
if(NOT LARKSPIN_KISSFFT_SOURCE STREQUAL "FETCH")
  find_package(PkgConfig QUIET)
  if(PKG_CONFIG_FOUND)
    pkg_check_modules(LARKSPIN_KISSFFT_PC QUIET IMPORTED_TARGET GLOBAL kissfft-float)
  endif()
  if(LARKSPIN_KISSFFT_PC_FOUND)
    target_link_libraries(larkspin_kissfft INTERFACE PkgConfig::LARKSPIN_KISSFFT_PC)
    set(_larkspin_kissfft_found "pkg-config kissfft-float ${LARKSPIN_KISSFFT_PC_VERSION}")
  else()
    find_package(kissfft CONFIG QUIET GLOBAL)
    if(TARGET kissfft::kissfft-float)
      target_link_libraries(larkspin_kissfft INTERFACE kissfft::kissfft-float)
      set(_larkspin_kissfft_found "CMake package kissfft ${kissfft_VERSION}")
    endif()
  endif()
  if(NOT _larkspin_kissfft_found AND LARKSPIN_KISSFFT_SOURCE STREQUAL "SYSTEM")
    message(FATAL_ERROR "KissFFT (float) not found: install libkissfft-dev for the target "
      "architecture, or configure with -DLARKSPIN_KISSFFT_SOURCE=FETCH")
  endif()
endif()

if(NOT _larkspin_kissfft_found)
  include(FetchContent)
  # SOURCE_SUBDIR names a directory without a CMakeLists.txt, so that only the
  # source is fetched: the two files the engine needs are compiled below with
  # the project's flags instead of through KissFFT's own build options.
  FetchContent_Declare(larkspin_kissfft_src
    GIT_REPOSITORY "${LARKSPIN_KISSFFT_GIT_REPOSITORY}"
    GIT_TAG "${LARKSPIN_KISSFFT_GIT_TAG}"
    GIT_SHALLOW TRUE
    SOURCE_SUBDIR no-build)
  FetchContent_MakeAvailable(larkspin_kissfft_src)
  set(_src "${larkspin_kissfft_src_SOURCE_DIR}")
  add_library(larkspin_kissfft_static STATIC "${_src}/kiss_fft.c" "${_src}/kiss_fftr.c")
  target_include_directories(larkspin_kissfft_static SYSTEM PUBLIC "${_src}")
  target_compile_definitions(larkspin_kissfft_static PUBLIC kiss_fft_scalar=float)
  set_target_properties(larkspin_kissfft_static PROPERTIES POSITION_INDEPENDENT_CODE ON)
  if(UNIX AND NOT APPLE)
    target_link_libraries(larkspin_kissfft_static PRIVATE m)
  endif()
  target_link_libraries(larkspin_kissfft INTERFACE larkspin_kissfft_static)
  set(_larkspin_kissfft_found "source ${LARKSPIN_KISSFFT_GIT_TAG}, built in (${_src})")
  unset(_src)
endif()
message(STATUS "KissFFT: ${_larkspin_kissfft_found}")
unset(_larkspin_kissfft_found)
