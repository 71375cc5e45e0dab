// Preset functions for the Python package: the library's preset API and the
// shared JSON form, on a preset's raw values (the bytes of a vora_preset).
#ifndef LARKSPIN_PYTHON_PRESETS_H
#define LARKSPIN_PYTHON_PRESETS_H

#include <pybind11/pybind11.h>

#include <string>

namespace larkspin_python {

void bindPresets(pybind11::module_& module);

// Raises ValueError, in the words the larkspin program and plug-in use,
// unless the library takes every value of the 196-byte `payload`.
void checkPayload(const std::string& payload);

} // namespace larkspin_python

#endif // LARKSPIN_PYTHON_PRESETS_H
