// Third-party hosts run a WAV file through the plugin with a preset of the
// test's own, chosen through their control syntax (preset value ports); the
// result must equal the library's output for the host's blocking.
#include "lv2_reference.h"

#include <gtest/gtest.h>
#include <sndfile.hh>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace larkspin_test {
namespace {

void writeWav(const std::string& path, const Planar& audio) {
  std::vector<float> interleaved(2 * audio[0].size());
  for (size_t i = 0; i < interleaved.size(); ++i) {
    interleaved[i] = audio[i % 2][i / 2];
  }
  SndfileHandle(path, SFM_WRITE, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000).writef(interleaved.data(), audio[0].size());
}

// Stereo audio of the file, none if it cannot be read.
Planar readWav(const std::string& path) {
  SndfileHandle file(path);
  std::vector<float> interleaved(file.channels() == 2 ? static_cast<size_t>(2 * file.frames()) : 0);
  file.readf(interleaved.data(), static_cast<sf_count_t>(interleaved.size() / 2));
  Planar out(2, std::vector<float>(interleaved.size() / 2));
  for (size_t i = 0; i < interleaved.size(); ++i) {
    out[i % 2][i / 2] = interleaved[i];
  }
  return out;
}

// The preset both hosts get, as preset value port settings.
struct PortSetting {
  const char* symbol;
  Edit edit;
};
constexpr PortSetting kSettings[] = {{"b02_gain_db_l", {2, 0, VORA_PRESET_GAIN_DB, 8.0f}},
                                     {"b02_gain_db_r", {2, 1, VORA_PRESET_GAIN_DB, -4.0f}},
                                     {"b09_fast_ratio_l", {9, 0, VORA_PRESET_FAST_RATIO, 0.2f}},
                                     {"b09_fast_threshold_db_l", {9, 0, VORA_PRESET_FAST_THRESHOLD_DB, -30.0f}},
                                     {"b11_slow_factor", {11, -1, VORA_PRESET_SLOW_FACTOR, 0.6f}}};

// `pattern` filled in as by printf.
template <typename... Args> std::string format(const char* pattern, Args... args) {
  std::string out(1024, '\0');
  out.resize(static_cast<size_t>(std::snprintf(out.data(), out.size(), pattern, args...)));
  return out;
}

struct HostCase {
  const char* name;
  // lv2apply matches bit for bit. Under ffmpeg single samples differ by up
  // to 1.8e-7 (one or two units in the last place near full scale); its
  // sample format conversions alone are exact, so the cause is in how ffmpeg
  // runs the filter, not in the plugin. Far below any audible difference.
  float tolerance;
  const char* command; // input file, output file, settings (positional in ffmpeg's)
  const char* setting; // port symbol, value
};

class Lv2Hosts : public testing::TestWithParam<HostCase> {};

TEST_P(Lv2Hosts, FileThroughHostEqualsTheLibrary) {
  const HostCase& c = GetParam();
  const Planar input = noise(2, 9600, 21);
  const std::string file = (std::filesystem::temp_directory_path() / "larkspin_lv2_").string() + c.name;
  const std::string in = file + "_in.wav";
  const std::string out = file + "_out.wav";
  std::string settings;
  std::vector<Edit> edits;
  for (const PortSetting& s : kSettings) {
    settings += format(c.setting, s.symbol, static_cast<double>(s.edit.value));
    edits.push_back(s.edit);
  }
  writeWav(in, input);
  std::filesystem::remove(out);
  const std::string command = format(c.command, in.c_str(), out.c_str(), settings.c_str());
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  // The edited preset is far from the default, so this also shows that the
  // host's control settings reached the plugin.
  EXPECT_LE(maxDifference(readWav(out), referenceOutput(input, 48000.0f, {presetAt(0, editedPreset(edits))})),
            c.tolerance)
      << command;
}

// asetnsamples fixes ffmpeg's blocking; ':' in the URI is escaped twice
// (filter graph, then option list).
INSTANTIATE_TEST_SUITE_P(
    Hosts, Lv2Hosts,
    testing::Values(HostCase{"lv2apply", 0.0f, LV2APPLY_PATH " -i %s -o %s %s urn:larkspin:lv2:stereo", "-c %s %g "},
                    HostCase{"ffmpeg", 1e-6f,
                             FFMPEG_PATH " -hide_banner -loglevel error -y -i %1$s -af 'asetnsamples=n=480:p=0,"
                                         "lv2=p=urn\\\\\\:larkspin\\\\\\:lv2\\\\\\:stereo:c=%3$s' -c:a pcm_f32le %2$s",
                             "%s=%g|"}),
    [](const auto& host) { return std::string(host.param.name); });

} // namespace
} // namespace larkspin_test
