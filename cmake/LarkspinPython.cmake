# Finds what the Python module needs and sets LARKSPIN_BUILD_PYTHON (default
# ON when pybind11 and the Python development files are found). Debian's own
# interpreter is preferred: it is the one that sees Debian's numpy.
if(NOT DEFINED Python3_EXECUTABLE AND EXISTS /usr/bin/python3 AND NOT CMAKE_CROSSCOMPILING)
  set(Python3_EXECUTABLE /usr/bin/python3 CACHE FILEPATH "Python interpreter the module is built for")
endif()

set(larkspin_python_found OFF)
if(NOT CMAKE_CROSSCOMPILING)
  find_package(Python3 3.9 QUIET COMPONENTS Interpreter Development.Module)
  if(Python3_FOUND)
    find_package(pybind11 CONFIG QUIET)
    # Preset files are read through the preset-file component.
    if(pybind11_FOUND AND LARKSPIN_BUILD_PRESET_JSON)
      set(larkspin_python_found ON)
    endif()
  endif()
endif()

option(LARKSPIN_BUILD_PYTHON "Build the Python module (needs pybind11 and python3-dev)" ${larkspin_python_found})
if(LARKSPIN_BUILD_PYTHON AND NOT larkspin_python_found)
  message(FATAL_ERROR "LARKSPIN_BUILD_PYTHON needs pybind11, the Python development files and LARKSPIN_BUILD_PRESET_JSON")
endif()
