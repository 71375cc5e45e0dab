// The native part of the `larkspin` Python package.
#include "presets.h"
#include "processor.h"

#include <pybind11/pybind11.h>

PYBIND11_MODULE(_larkspin, module) {
  module.doc() = "Native part of the larkspin package; use the names exported by `larkspin`.";
  larkspin_python::bindProcessor(module);
  larkspin_python::bindPresets(module);
}
