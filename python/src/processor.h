// One processing instance for Python: numpy arrays of any length in, fed to
// the library in whole hops through a queue of one hop, so that the delay is
// the same however the arrays are cut; the interpreter lock is released
// while the library works.
#ifndef LARKSPIN_PYTHON_PROCESSOR_H
#define LARKSPIN_PYTHON_PROCESSOR_H

#include <larkspin/generic_audio_processor.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace larkspin_python {

class Processor {
public:
  Processor(double sampleRate, int channels, int maxBlock);
  Processor(const Processor&) = delete;
  Processor& operator=(const Processor&) = delete;

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
  int hop() const { return hop_; }

private:
  // Runs `work` on the instance with the interpreter lock released and the
  // instance's own lock held, so that another Python thread can neither
  // run beside it nor close the instance under it.
  template <typename Work> auto locked(Work&& work);
  vora::GenericAudioProcessor& instance(); // lock held; throws when closed
  // The library's lines of the calls made so far, as RuntimeWarnings.
  void warnLines();

  double sampleRate_;
  int channels_;
  int hop_ = 0;      // the library's hop, frames
  int maxBlock_ = 0; // whole hops
  std::mutex mutex_;
  std::unique_ptr<vora::GenericAudioProcessor> instance_;
  // Per channel hop_ + maxBlock_ samples: the queue's hop_ frames (those
  // processed and not yet returned, then `queued_` raw ones), and room for
  // a block of new input behind them.
  std::vector<float> queue_;
  int queued_ = 0;
  std::vector<std::string> lines_; // filled by the library on the calling thread, under mutex_
};

void bindProcessor(pybind11::module_& module);

} // namespace larkspin_python

#endif // LARKSPIN_PYTHON_PROCESSOR_H
