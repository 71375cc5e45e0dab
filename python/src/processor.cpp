#include "processor.h"

#include "presets.h"

#include <larkspin/vora_preset.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <string>

namespace py = pybind11;

namespace larkspin_python {
namespace {

// Where the samples of an array live: channel c, frame i is at
// data + c * channelStride + i * frameStride (bytes), as float or double.
struct Samples {
  char* data;
  py::ssize_t channelStride;
  py::ssize_t frameStride;
  bool isDouble;
};

Samples samplesOf(const py::array& array, void* data) {
  const bool mono = array.ndim() == 1;
  return Samples{static_cast<char*>(data), mono ? 0 : array.strides(0), array.strides(mono ? 0 : 1),
                 array.itemsize() == 8};
}

template <typename T>
void gatherAs(const Samples& from, int channels, py::ssize_t first, int frames, float* const* to) {
  for (int c = 0; c < channels; ++c) {
    const char* source = from.data + c * from.channelStride + first * from.frameStride;
    for (int i = 0; i < frames; ++i) {
      T value;
      std::memcpy(&value, source + i * from.frameStride, sizeof value); // strides need not be aligned
      to[c][i] = static_cast<float>(value);
    }
  }
}

template <typename T>
void scatterAs(const float* const* from, int channels, py::ssize_t first, int frames, const Samples& to) {
  for (int c = 0; c < channels; ++c) {
    char* target = to.data + c * to.channelStride + first * to.frameStride;
    for (int i = 0; i < frames; ++i) {
      const T value = static_cast<T>(from[c][i]);
      std::memcpy(target + i * to.frameStride, &value, sizeof value);
    }
  }
}

void gather(const Samples& from, int channels, py::ssize_t first, int frames, float* const* to) {
  from.isDouble ? gatherAs<double>(from, channels, first, frames, to)
                : gatherAs<float>(from, channels, first, frames, to);
}

void scatter(const float* const* from, int channels, py::ssize_t first, int frames, const Samples& to) {
  to.isDouble ? scatterAs<double>(from, channels, first, frames, to)
              : scatterAs<float>(from, channels, first, frames, to);
}

std::string text(const py::handle& object) {
  return py::str(object).cast<std::string>();
}

bool isFloatArray(const py::array& array) {
  const py::dtype type = array.dtype();
  return type.kind() == 'f' && (type.itemsize() == 4 || type.itemsize() == 8);
}

// The audio argument as a float32/float64 array in native byte order, or a
// TypeError that says what was expected.
py::array audioArray(const py::object& object, const char* name) {
  const py::module_ numpy = py::module_::import("numpy");
  py::array array;
  if (py::isinstance<py::array>(object)) {
    array = py::reinterpret_borrow<py::array>(object);
  } else {
    try {
      array = numpy.attr("asarray")(object);
    } catch (const py::error_already_set&) {
      throw py::type_error(std::string(name) + " must be a float32 or float64 numpy array, not " +
                           text(py::type::handle_of(object).attr("__name__")));
    }
  }
  if (!isFloatArray(array)) {
    throw py::type_error(std::string(name) + " must be a float32 or float64 array (samples in -1..1), not " +
                         text(array.dtype()));
  }
  if (!array.dtype().attr("isnative").cast<bool>()) {
    array = array.attr("astype")(array.dtype().attr("newbyteorder")("="));
  }
  return array;
}

void checkShape(const py::array& array, int channels, const char* name) {
  const bool fits = (array.ndim() == 2 && array.shape(0) == channels) || (array.ndim() == 1 && channels == 1);
  if (!fits) {
    const std::string expected =
        channels == 1 ? "(frames,) or (1, frames)" : "(" + std::to_string(channels) + ", frames)";
    throw py::value_error(std::string(name) + " must have shape " + expected + " for this " + std::to_string(channels) +
                          "-channel Processor, not " + text(array.attr("shape")));
  }
}

} // namespace

Processor::Processor(double sampleRate, int channels, int maxBlock) : sampleRate_(sampleRate), channels_(channels) {
  if (channels != 1 && channels != 2) {
    throw py::value_error("channels must be 1 (mono) or 2 (stereo), not " + std::to_string(channels));
  }
  if (maxBlock < 1) {
    throw py::value_error("max_block must be at least 1 frame, not " + std::to_string(maxBlock));
  }
  // The library delays by exactly its latency only when every block is a
  // whole number of hops (a quarter of its FFT).
  vora_band_info bands[VORA_BAND_COUNT];
  hop_ = std::isfinite(sampleRate) ? vora_preset_band_layout(static_cast<float>(sampleRate), bands) / 4 : 0;
  maxBlock_ = hop_ > 0 ? std::max(hop_, maxBlock / hop_ * hop_) : maxBlock;
  instance_ = std::make_unique<vora::GenericAudioProcessor>();
  instance_->setMessageHook(
      [](void* self, const char* line) {
        try {
          static_cast<Processor*>(self)->lines_.emplace_back(line);
        } catch (...) {
          // Out of memory: the line is lost, the call goes on.
        }
      },
      this);
  if (hop_ == 0 || !instance_->setup(static_cast<float>(sampleRate), maxBlock_, channels)) {
    throw py::value_error("the library does not take sample_rate=" + text(py::float_(sampleRate)) +
                          " Hz with max_block=" + std::to_string(maxBlock) +
                          " (sample rates from 32000 to 192000 Hz are supported)");
  }
  queue_.assign(static_cast<std::size_t>(channels) *
                    (static_cast<std::size_t>(hop_) + static_cast<std::size_t>(maxBlock_)),
                0.0f);
  warnLines();
}

void Processor::warnLines() {
  std::vector<std::string> lines;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    lines.swap(lines_);
  }
  for (const std::string& line : lines) {
    if (PyErr_WarnEx(PyExc_RuntimeWarning, line.c_str(), 1) != 0) {
      throw py::error_already_set(); // warnings turned into errors
    }
  }
}

template <typename Work> auto Processor::locked(Work&& work) {
  const py::gil_scoped_release release;
  const std::lock_guard<std::mutex> lock(mutex_);
  return work();
}

vora::GenericAudioProcessor& Processor::instance() {
  if (!instance_) {
    throw py::value_error("the Processor is closed");
  }
  return *instance_;
}

py::object Processor::process(const py::object& input, const py::object& out) {
  py::array in = audioArray(input, "x");
  checkShape(in, channels_, "x");
  py::array target;
  if (out.is_none()) {
    target = py::array(in.dtype(), std::vector<py::ssize_t>(in.shape(), in.shape() + in.ndim()));
  } else {
    if (!py::isinstance<py::array>(out)) {
      throw py::type_error("out must be a numpy array, not " + text(py::type::handle_of(out).attr("__name__")));
    }
    target = py::reinterpret_borrow<py::array>(out);
    if (!isFloatArray(target) || !target.dtype().attr("isnative").cast<bool>()) {
      throw py::type_error("out must be a float32 or float64 array in native byte order, not " + text(target.dtype()));
    }
    if (!target.writeable()) {
      throw py::value_error("out is read-only");
    }
    if (!in.attr("shape").equal(target.attr("shape"))) {
      throw py::value_error("out must have the shape of x " + text(in.attr("shape")) + ", not " +
                            text(target.attr("shape")));
    }
    // Block by block, exactly the same layout may be read and then written;
    // any other overlap would read samples already overwritten.
    const bool sameLayout = in.data() == target.data() && in.dtype().equal(target.dtype()) &&
                            std::equal(in.strides(), in.strides() + in.ndim(), target.strides());
    if (!sameLayout && py::module_::import("numpy").attr("may_share_memory")(in, target).cast<bool>()) {
      in = in.attr("copy")();
    }
  }

  const Samples from = samplesOf(in, const_cast<void*>(in.data()));
  const Samples to = samplesOf(target, target.mutable_data());
  const py::ssize_t frames = in.shape(in.ndim() - 1);
  const bool ok = locked([&] {
    if (!instance_) {
      return false;
    }
    // Per channel: [hop_ - queued_ processed frames | queued_ raw frames |
    // count new frames]. The raw frames go to the library in whole hops;
    // the first count frames go out; the last hop_ frames stay queued.
    const std::size_t stride = static_cast<std::size_t>(hop_) + static_cast<std::size_t>(maxBlock_);
    float* queue[2] = {queue_.data(), channels_ > 1 ? queue_.data() + stride : nullptr};
    for (py::ssize_t first = 0; first < frames;) {
      const int count = static_cast<int>(std::min<py::ssize_t>(maxBlock_, frames - first));
      float* newFrames[2] = {queue[0] + hop_, queue[1] != nullptr ? queue[1] + hop_ : nullptr};
      gather(from, channels_, first, count, newFrames);
      const int raw = queued_ + count;
      const int whole = raw / hop_ * hop_;
      if (whole > 0) {
        const int start = hop_ - queued_;
        float* block[2] = {queue[0] + start, queue[1] != nullptr ? queue[1] + start : nullptr};
        if (!instance_->process(block, whole)) {
          return false;
        }
      }
      scatter(queue, channels_, first, count, to);
      for (int c = 0; c < channels_; ++c) {
        std::memmove(queue[c], queue[c] + count, static_cast<std::size_t>(hop_) * sizeof(float));
      }
      queued_ = raw - whole;
      first += count;
    }
    return true;
  });
  if (!ok) {
    locked([&] { return &instance(); }); // closed by another thread meanwhile?
    throw std::runtime_error("the library refused to process a block");
  }
  return target;
}

void Processor::applyPreset(const py::object& payload) {
  if (!PyObject_CheckBuffer(payload.ptr()) || PyUnicode_Check(payload.ptr())) {
    throw py::type_error("a preset must be a Preset or " + std::to_string(VORA_AP_PRESET_PAYLOAD_SIZE) +
                         " bytes, not " + text(py::type::handle_of(payload).attr("__name__")));
  }
  // bytes, bytearray, memoryview, a uint8 array: copied, whatever the layout.
  const std::string bytes = py::bytes(py::module_::import("builtins").attr("memoryview")(payload).attr("tobytes")());
  if (bytes.size() != VORA_AP_PRESET_PAYLOAD_SIZE) {
    throw py::value_error("a preset payload is " + std::to_string(VORA_AP_PRESET_PAYLOAD_SIZE) + " bytes, not " +
                          std::to_string(bytes.size()));
  }
  // The library would apply the values it accepts and skip the others (and
  // take a payload equal to the one it stores as applied without applying
  // it): checked first, a payload is applied whole or refused.
  checkPayload(bytes);
  unsigned char copy[VORA_AP_PRESET_PAYLOAD_SIZE];
  std::memcpy(copy, bytes.data(), sizeof copy);
  const bool applied = locked([&] { return instance_ && instance_->applyPresetPayload(copy); });
  warnLines();
  if (!applied) {
    locked([&] { return &instance(); });
    throw py::value_error("the library refused the preset payload");
  }
}

void Processor::reset() {
  // Set-up keeps the interpreter lock: it serialises set-ups across
  // Processors, which the library asks of its hosts.
  bool ok = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ok = instance().setup(static_cast<float>(sampleRate_), maxBlock_, channels_);
    std::fill(queue_.begin(), queue_.end(), 0.0f);
    queued_ = 0;
  }
  warnLines();
  if (!ok) {
    throw std::runtime_error("the library could not set the Processor up again");
  }
}

void Processor::close() {
  locked([&] { instance_.reset(); });
}

bool Processor::closed() {
  return locked([&] { return !instance_; });
}

float Processor::intensity() {
  return locked([&] { return instance().getVoraficationIntensity(); });
}

void Processor::setIntensity(double intensity) {
  // Refused, not clamped, as the larkspin program refuses it.
  if (!(intensity >= 0.0 && intensity <= 1.0)) {
    throw py::value_error("intensity must be a number from 0 to 1, not " + text(py::float_(intensity)));
  }
  locked([&] { return instance().setVoraficationIntensity(static_cast<float>(intensity)); });
  warnLines();
}

bool Processor::bypassed() {
  return locked([&] { return instance().getBypassed(); });
}

void Processor::setBypassed(bool bypassed) {
  locked([&] { return instance().setBypassed(bypassed); });
  warnLines();
}

int Processor::latency() {
  return static_cast<int>(locked([&] { return instance().getProcessingLatency(); })) + hop_;
}

py::bytes Processor::currentPayload() {
  std::string bytes(VORA_AP_PRESET_PAYLOAD_SIZE, '\0');
  locked([&] { return std::memcpy(bytes.data(), instance().getCurrentPresetPayload(), bytes.size()); });
  return py::bytes(bytes);
}

void bindProcessor(py::module_& module) {
  using namespace pybind11::literals;
  py::class_<Processor>(module, "Processor", "One processing instance; see larkspin.Processor.")
      .def(py::init<double, int, int>(), "sample_rate"_a, "channels"_a, "max_block"_a = 1024)
      .def("process", &Processor::process, "x"_a, "out"_a = py::none(),
           R"(Processes audio and returns the result (a new array, or `out`).

x    float32 or float64 array of shape (channels, frames), or (frames,)
     for a mono Processor; any number of frames, any memory layout.
     Samples are full scale at +-1.0. NaN and infinities are treated as
     silence and huge values clamped, as in the C interface.
out  optional float32 or float64 array of x's shape to write into; it may
     be x itself (in-place processing).

The library works in float32; float64 data is converted on the way in and
out. The output is delayed by exactly `latency` frames, however a stream
is cut into arrays: the library is fed whole hops through a queue.)")
      .def("apply_preset", &Processor::applyPreset, "payload"_a,
           "Puts a preset payload (196 bytes) in force on this Processor only; ValueError, naming each refused\n"
           "value as the library does, when the library refuses any of its values (nothing is applied).")
      .def("reset", &Processor::reset,
           "Clears the audio state and the queue (as a fresh stream); preset, intensity and bypass are kept.")
      .def("close", &Processor::close, "Frees the instance; later calls raise ValueError. Closing twice is fine.")
      .def_property_readonly("closed", &Processor::closed, "True after close().")
      .def_property("intensity", &Processor::intensity, &Processor::setIntensity,
                    "Share of the processed signal, 0 (dry) to 1 (fully processed); ValueError for values outside.")
      .def_property("bypassed", &Processor::bypassed, &Processor::setBypassed,
                    "When True the input passes unprocessed (still delayed by the latency).")
      .def_property_readonly("latency", &Processor::latency,
                             "Delay of the output behind the input, frames: the library's latency plus the one hop\n"
                             "(a quarter of its FFT) that the queue feeding it whole hops adds; the same for any\n"
                             "lengths of the arrays given to process().")
      .def_property("payload", &Processor::currentPayload, &Processor::applyPreset,
                    "The preset payload in force (196 bytes); setting it is apply_preset().")
      .def_property_readonly("_queue_frames", &Processor::hop, "Frames of delay the queue adds: one hop.")
      .def_property_readonly("sample_rate", &Processor::sampleRate, "Sample rate, Hz.")
      .def_property_readonly("channels", &Processor::channels, "Channel count, 1 or 2.")
      .def_property_readonly("max_block", &Processor::maxBlock,
                             "Largest block handed to the library, frames: the max_block given, rounded down to\n"
                             "whole hops (at least one).")
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](Processor& self, const py::args&) { self.close(); })
      .def("__repr__", [](const Processor& self) {
        return "Processor(sample_rate=" + text(py::float_(self.sampleRate())) +
               ", channels=" + std::to_string(self.channels()) + ", max_block=" + std::to_string(self.maxBlock()) + ")";
      });
}

} // namespace larkspin_python
