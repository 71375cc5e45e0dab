// Preset functions for the Python package: the library's preset API and the
// shared JSON form, on a preset's raw values (the bytes of a vora_preset).
#ifndef LARKSPIN_PYTHON_PRESETS_H
#define LARKSPIN_PYTHON_PRESETS_H

#include <pybind11/pybind11.h>

namespace larkspin_python {

void bindPresets(pybind11::module_& module);

} // namespace larkspin_python

#endif // LARKSPIN_PYTHON_PRESETS_H
