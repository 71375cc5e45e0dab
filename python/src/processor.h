// One processing instance for Python: numpy arrays of any length in, blocked
// into the library's maximum block size, with the interpreter lock released
// while the library works.
#ifndef LARKSPIN_PYTHON_PROCESSOR_H
#define LARKSPIN_PYTHON_PROCESSOR_H

#include <larkspin/generic_audio_processor.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <memory>
#include <mutex>
#include <vector>

namespace larkspin_python {

class Processor {
public:
  Processor(double sampleRate, int channels, int maxBlock);

  pybind11::object process(const pybind11::object& input, const pybind11::object& out);
  void applyPreset(const pybind11::object& payload);
  void reset();
  void close();

  bool closed();
  float intensity();
  void setIntensity(double intensity);
  bool bypassed();
  void setBypassed(bool bypassed);
  int latency();
  pybind11::bytes currentPayload();

  double sampleRate() const { return sampleRate_; }
  int channels() const { return channels_; }
  int maxBlock() const { return maxBlock_; }

private:
  // Runs `work` on the instance with the interpreter lock released and the
  // instance's own lock held, so that another Python thread can neither
  // run beside it nor close the instance under it.
  template <typename Work> auto locked(Work&& work);
  vora::GenericAudioProcessor& instance(); // lock held; throws when closed

  double sampleRate_;
  int channels_;
  int maxBlock_;
  std::mutex mutex_;
  std::unique_ptr<vora::GenericAudioProcessor> instance_;
  std::vector<float> scratch_; // channels_ * maxBlock_ samples
};

void bindProcessor(pybind11::module_& module);

} // namespace larkspin_python

#endif // LARKSPIN_PYTHON_PROCESSOR_H
