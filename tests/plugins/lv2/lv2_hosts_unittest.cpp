// Third-party hosts run a WAV file through the plugin with a preset of the
// test's own, chosen through their control syntax (preset value ports); the
// result must equal the library's output for the host's blocking.
#include "lv2_reference.h"

#include <gtest/gtest.h>
#include <sndfile.hh>

#include <cstdlib>
#include <filesystem>
#include <iterator>
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

struct HostCase {
  const char* name;
  // lv2apply matches bit for bit. Under ffmpeg single samples differ by up
  // to 1.8e-7 (one or two units in the last place near full scale); its
  // sample format conversions alone are exact, so the cause is in how ffmpeg
  // runs the filter, not in the plugin. Far below any audible difference.
  float tolerance;
  std::string (*command)(const std::string& in, const std::string& out);
};

std::string lv2apply(const std::string& in, const std::string& out) {
  std::string command = std::string(LV2APPLY_PATH) + " -i " + in + " -o " + out;
  for (const PortSetting& s : kSettings) {
    command += " -c " + std::string(s.symbol) + " " + std::to_string(s.edit.value);
  }
  return command + " urn:larkspin:lv2:stereo";
}

// asetnsamples fixes ffmpeg's blocking; ':' in the URI is escaped twice
// (filter graph, then option list).
std::string ffmpeg(const std::string& in, const std::string& out) {
  std::string command = std::string(FFMPEG_PATH) + " -hide_banner -loglevel error -y -i " + in +
                        " -af 'asetnsamples=n=480:p=0,lv2=p=urn\\\\\\:larkspin\\\\\\:lv2\\\\\\:stereo:c=";
  for (const PortSetting& s : kSettings) {
    command += std::string(s.symbol) + "=" + std::to_string(s.edit.value) + (&s == std::end(kSettings) - 1 ? "" : "|");
  }
  return command + "' -c:a pcm_f32le " + out;
}

class Lv2Hosts : public testing::TestWithParam<HostCase> {};

TEST_P(Lv2Hosts, FileThroughHostEqualsTheLibrary) {
  const HostCase& c = GetParam();
  const Planar input = noise(2, 9600, 21);
  const auto temporary = std::filesystem::temp_directory_path() / ("larkspin_lv2_host_" + std::string(c.name));
  const std::string in = temporary.string() + "_in.wav";
  const std::string out = temporary.string() + "_out.wav";
  writeWav(in, input);
  std::filesystem::remove(out);
  const std::string command = c.command(in, out);
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  const Planar output = readWav(out);
  std::vector<Edit> edits;
  for (const PortSetting& s : kSettings) {
    edits.push_back(s.edit);
  }
  // The edited preset is far from the default, so this also shows that the
  // host's control settings reached the plugin.
  EXPECT_LE(maxDifference(output, referenceOutput(input, 48000.0f, {presetAt(0, editedPreset(edits))})), c.tolerance)
      << command;
}

INSTANTIATE_TEST_SUITE_P(Hosts, Lv2Hosts,
                         testing::Values(HostCase{"lv2apply", 0.0f, lv2apply}, HostCase{"ffmpeg", 1e-6f, ffmpeg}),
                         [](const auto& host) { return std::string(host.param.name); });

} // namespace
} // namespace larkspin_test
