# Finds what the Java binding needs and sets LARKSPIN_BUILD_JAVA (default ON
# where JNI headers are found) and LARKSPIN_JAVA_ON_HOST (the jar, its tests
# and example: only where a host JDK can also run them, that is not in a
# cross build).
# - Android: the NDK's sysroot carries jni.h; the glue library is built
#   beside liblarkspin.so and the jar comes from a host build.
# - Other cross builds (armhf): the glue is compiled against the host JDK's
#   headers, which are the same for every Linux target, as a check of the
#   32-bit build; nothing Java runs there.
set(larkspin_java_found OFF)
set(LARKSPIN_JAVA_ON_HOST OFF)
if(ANDROID)
  set(larkspin_java_found ON)
else()
  # Headers only: the glue does not link the virtual machine.
  find_package(JNI QUIET OPTIONAL_COMPONENTS JVM)
  if(JNI_FOUND)
    set(larkspin_java_found ON)
    if(NOT CMAKE_CROSSCOMPILING)
      find_package(Java 11 QUIET COMPONENTS Development Runtime)
      if(Java_FOUND)
        set(LARKSPIN_JAVA_ON_HOST ON)
      endif()
    endif()
  endif()
endif()

option(LARKSPIN_BUILD_JAVA "Build the Java binding (needs a JDK, e.g. Debian's default-jdk-headless)" ${larkspin_java_found})
if(LARKSPIN_BUILD_JAVA AND NOT larkspin_java_found)
  message(FATAL_ERROR "LARKSPIN_BUILD_JAVA needs the JNI headers of a JDK (Debian: default-jdk-headless)")
endif()
if(NOT LARKSPIN_BUILD_JAVA)
  set(LARKSPIN_JAVA_ON_HOST OFF)
endif()
