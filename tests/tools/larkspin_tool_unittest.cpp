// End-to-end tests of the larkspin program: they run the built executable
// on generated files, as a user would.
#include "tool_runner.h"

#include <larkspin/vora_ap.h>
#include <larkspin/vora_preset.h>

#include "preset_json/preset_json.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <map>

namespace larkspin_test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class ToolTest : public ToolRunner {};

// The same audio through the C interface directly, in blocks of 256, with
// the output shifted back by the reported latency.
std::vector<float> directAligned(const Audio& in, unsigned char* payload) {
  vora_ap_control* control = vora_ap_create_control(48000.0f, 256, 1);
  vora_ap_apply_preset_payload(payload);
  vora_ap_set_vorafication_intensity(1.0f);
  const size_t latency = static_cast<size_t>(vora_ap_get_processing_latency(control));
  std::vector<float> l = in.channels[0], r = in.channels[1];
  l.resize(l.size() + latency + 256, 0.0f);
  r.resize(l.size(), 0.0f);
  for (size_t start = 0; start + 256 <= l.size(); start += 256) {
    float* channels[2] = {l.data() + start, r.data() + start};
    vora_ap_process(control, channels, 256);
  }
  vora_ap_destroy_control(control);
  return {l.begin() + static_cast<std::ptrdiff_t>(latency),
          l.begin() + static_cast<std::ptrdiff_t>(latency + in.channels[0].size())};
}

TEST_F(ToolTest, ProcessKeepsLengthAndAlignsWithTheLibrary) {
  const Audio in = testSignal(48000, 2, 48000 + 77, 1u);
  write("stereo.wav", in);
  vora_preset preset;
  vora_preset_default(&preset);
  for (auto& band : preset.bands) {
    band.channels[0] = band.channels[1] = {6.0f, -30.0f, 0.5f};
    band.slowDelayMs = 10.0f;
    band.slowTimeConstantMs = 50.0f;
  }
  unsigned char payload[VORA_AP_PRESET_PAYLOAD_SIZE];
  ASSERT_EQ(vora_preset_encode(&preset, payload, nullptr, 0, nullptr), 0);
  std::ofstream(path("preset.bin"), std::ios::binary).write(reinterpret_cast<const char*>(payload), sizeof payload);

  const std::string summary =
      succeed("process " + path("stereo.wav") + " " + path("out.wav") + " --preset " + path("preset.bin") + " --align");
  EXPECT_NE(summary.find("latency:       192 frames"), std::string::npos) << summary;
  const Audio out = read("out.wav");
  ASSERT_EQ(out.channels.size(), 2u);
  ASSERT_EQ(out.channels[0].size(), in.channels[0].size());
  const std::vector<float> expected = directAligned(in, payload);
  for (size_t i = 0; i < expected.size(); ++i) {
    ASSERT_NEAR(out.channels[0][i], expected[i], 1e-6f) << i;
  }
}

vora_preset presetOf(const std::string& json) {
  return larkspin_json::parse(json, "output").values;
}

bool samePreset(const vora_preset& a, const vora_preset& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// The preset commands reach the library: the default is the library's,
// --set changes exactly the named values, and encode and decode are inverse.
TEST_F(ToolTest, StartingPointsOverridesAndPresetFiles) {
  const std::string shown = succeed("preset default");
  vora_preset expected;
  vora_preset_default(&expected);
  EXPECT_TRUE(samePreset(presetOf(shown), expected));

  const std::string set =
      succeed("preset default --set band3.gainDb=4 --set all.ch1.fastRatio=0.25 --set band12.slowDelayMs=7");
  expected.bands[3].channels[0].gainDb = expected.bands[3].channels[1].gainDb = 4.0f;
  for (auto& band : expected.bands) {
    band.channels[1].fastRatio = 0.25f;
  }
  expected.bands[12].slowDelayMs = 7.0f;
  EXPECT_TRUE(samePreset(presetOf(set), expected));
  std::ofstream(path("set.json")) << set;
  succeed("preset encode " + path("set.json") + " " + path("set.bin"));
  const larkspin_json::Payload payload = larkspin_json::parse(set, "set").payload;
  EXPECT_TRUE(slurp(path("set.bin")) == std::string(payload.begin(), payload.end()));
  EXPECT_TRUE(larkspin_json::parse(run("preset decode " + path("set.bin")).out, "decoded").payload == payload);

  // Every shipped preset is stored exactly: no refusals, no rounding notes
  // (a changed band 1 is noted: the FFT misses it at 44.1 and 48 kHz).
  for (const auto& entry : fs::directory_iterator(fs::path(LARKSPIN_SOURCE_DIR) / "presets")) {
    const ToolRun encoded = run("preset encode " + entry.path().string() + " " + path("shipped.bin"));
    EXPECT_EQ(encoded.status, 0) << entry.path();
    EXPECT_THAT(encoded.err, AllOf(Not(HasSubstr("stored as")), Not(HasSubstr("rounded")))) << entry.path();
    EXPECT_EQ(encoded.err.find("band 1 (210 to 297 Hz) holds no FFT bin at 44.1, 48, 88.2, 96, 176.4 and 192 kHz"),
              entry.path().filename() == "neutral.json" ? std::string::npos : 16u)
        << encoded.err;
  }

  // Rounding is summarised in one line; a band the FFT misses at the
  // plot's rate gets one line.
  const ToolRun rounded = run("plot --set all.fastRatio=0.3 --set band1.gainDb=10 --rate 44100 " + path("bands.svg"));
  ASSERT_EQ(rounded.status, 0) << rounded.err;
  EXPECT_THAT(rounded.err, testing::StartsWith("larkspin: note: 28 values rounded to the payload's steps; see "
                                               "`larkspin preset encode`\nlarkspin: note: band 1 (210 to 297 Hz) holds "
                                               "no FFT bin at 44100 Hz"));
  EXPECT_THAT(run("plot --set band1.gainDb=10 --rate 32000 " + path("bands.svg")).err, Not(HasSubstr("FFT bin")));
}

// Tags open and close in order; enough to catch a broken writer.
bool wellFormed(const std::string& xml) {
  std::vector<std::string> open;
  for (size_t at = xml.find('<'); at != std::string::npos; at = xml.find('<', at + 1)) {
    const size_t end = xml.find('>', at);
    if (end == std::string::npos) {
      return false;
    }
    const std::string tag = xml.substr(at + 1, end - at - 1);
    if (tag.empty() || tag[0] == '?' || tag[0] == '!' || tag.back() == '/') {
      continue;
    }
    const std::string name = tag.substr(tag[0] == '/' ? 1 : 0, tag.find_first_of(" \t\n") - (tag[0] == '/' ? 1 : 0));
    if (tag[0] == '/') {
      if (open.empty() || open.back() != name) {
        return false;
      }
      open.pop_back();
    } else {
      open.push_back(name);
    }
  }
  return open.empty() && xml.find("<svg") != std::string::npos;
}

// The elements named `name` in document order, each as a map of its
// attributes.
std::vector<std::map<std::string, std::string>> elements(const std::string& xml, const std::string& name) {
  std::vector<std::map<std::string, std::string>> found;
  for (size_t at = xml.find("<" + name + " "); at != std::string::npos; at = xml.find("<" + name + " ", at + 1)) {
    const std::string tag = xml.substr(at, xml.find('>', at) - at);
    std::map<std::string, std::string> attributes;
    for (size_t eq = tag.find("=\""); eq != std::string::npos; eq = tag.find("=\"", eq + 2)) {
      const size_t start = tag.rfind(' ', eq) + 1, end = tag.find('"', eq + 2);
      attributes[tag.substr(start, eq - start)] = tag.substr(eq + 2, end - eq - 2);
      eq = end - 1;
    }
    found.push_back(std::move(attributes));
  }
  return found;
}

TEST_F(ToolTest, PicturesAreReadable) {
  ASSERT_EQ(run("plot --rate 48000 " + path("bands.svg")).status, 0);
  const std::string bands = slurp(path("bands.svg"));
  ASSERT_TRUE(wellFormed(bands));
  for (const char* text : {"Band responses", "Combined response at unity gains", "band 13: no controls"}) {
    EXPECT_THAT(bands, HasSubstr(text));
  }

  ASSERT_EQ(run("plot --curves --set band2.ch1.fastRatio=0 " + path("curves.svg")).status, 0);
  const std::string curves = slurp(path("curves.svg"));
  EXPECT_TRUE(wellFormed(curves));
  EXPECT_THAT(curves, AllOf(HasSubstr("band 2 ch1"), Not(HasSubstr("band 3 ch1"))));

  // The spectrum report says what it shows, and that silence is silence.
  write("quiet.wav", {48000, {std::vector<float>(48000, 0.0f)}});
  succeed("process " + path("quiet.wav") + " " + path("out.wav") + " --intensity 0.5 --report " + path("report.svg"));
  const std::string report = slurp(path("report.svg"));
  EXPECT_TRUE(wellFormed(report));
  EXPECT_THAT(report, HasSubstr("quiet.wav, the default preset, intensity 0.50"));
  EXPECT_THAT(report, AllOf(HasSubstr("input (silent)"), HasSubstr("output (silent)")));

  succeed("demo " + path("demo"));
  for (const char* file : {"input.wav", "output.wav", "report.svg", "bands.svg", "curves.svg", "gains.svg"}) {
    EXPECT_TRUE(fs::exists(path(std::string("demo/") + file))) << file;
  }
}

// The heat map shows what the library's band read-out reports: for a steady
// tone in band 8, 2:1 above -20 dB, the compressor's gain, and 0 dB elsewhere.
TEST_F(ToolTest, GainMapShowsTheDynamics) {
  constexpr double kAmplitude = 0.3, kToneHz = 2812.5;
  synthesize("tone.wav", 48000, 2, "synth 0.97 sine " + std::to_string(kToneHz) + " vol " + std::to_string(kAmplitude));
  succeed("process " + path("tone.wav") + " " + path("out.wav") + " --preset " + LARKSPIN_SOURCE_DIR +
          "/presets/neutral.json --set all.fastRatio=0.5 --set all.fastThresholdDb=-20 --gains " + path("gains.svg"));
  const std::string map = slurp(path("gains.svg"));
  ASSERT_TRUE(wellFormed(map));
  EXPECT_THAT(map, AllOf(HasSubstr("Band gains over time: tone.wav"), HasSubstr("Input level")));
  const double expectedDb = (0.5 - 1.0) * (20.0 * std::log10(kAmplitude) + 20.0);
  // Each row (band and channel) is a sequence of runs; take the one that
  // covers 0.7 s, when the tone has long settled.
  std::vector<std::pair<int, double>> rows; // band, gain in dB
  for (auto& cell : elements(map, "rect")) {
    if (cell.count("data-band") == 0) {
      continue;
    }
    const int band = std::stoi(cell["data-band"]);
    if (rows.empty() || rows.back().first != band) {
      rows.emplace_back(band, NAN);
    }
    if (std::stod(cell["data-time"]) <= 0.7) {
      rows.back().second = std::stod(cell["data-db"]);
    }
  }
  ASSERT_EQ(rows.size(), 28u); // fourteen bands, two channels
  for (const auto& [band, gainDb] : rows) {
    if (band == 8 || band < 5) {
      EXPECT_NEAR(gainDb, band == 8 ? expectedDb : 0.0, 0.3) << band;
    }
  }
  // Time ticks at round values on a file of 0.97 s.
  const std::string tick = "font-size=\"11\">";
  int ticks = 0;
  for (size_t at = map.find(tick); at != std::string::npos; at = map.find(tick, at + 1)) {
    const size_t start = at + tick.size();
    const std::string label = map.substr(start, map.find('<', start) - start);
    if (label.find_first_not_of("0123456789.") == std::string::npos) {
      ++ticks;
      EXPECT_LE(label.size(), 3u) << label; // "0", "0.1" ... "0.9"
    }
  }
  EXPECT_EQ(ticks, 20); // ten per channel
}

// With --resample, a 16 kHz file comes back at 16 kHz with its length, about
// as loud as the same material processed at 48 kHz.
TEST_F(ToolTest, ResamplesRatesTheLibraryDoesNotTake) {
  const auto rmsDb = [](const std::vector<float>& x) {
    double sum = 0.0;
    for (size_t i = x.size() / 4; i < x.size() * 3 / 4; ++i) {
      sum += static_cast<double>(x[i]) * x[i];
    }
    return 10.0 * std::log10(sum / static_cast<double>(x.size() / 2));
  };
  for (const auto& [name, rate] : {std::pair{"low.wav", 16000}, std::pair{"high.wav", 48000}}) {
    synthesize(name, rate, 1, "channels 3 synth 1 sine 440 sine 2500 sine 5000 remix 1v0.2,2v0.1,3v0.05");
  }
  // The 16 kHz file runs at 32 kHz, where every band holds bins; at 48 kHz
  // the FFT misses band 1, and a setting on it is noted.
  for (const auto& name : {std::string("low"), std::string("high")}) {
    const ToolRun ran =
        run("process --set band1.gainDb=6 --align " + path(name + ".wav") + " " + path(name + "-out.wav") +
            (name == "low" ? " --resample --report " + path("report.svg") + " --gains " + path("gains.svg") : ""));
    ASSERT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.err.find("band 1 (210 to 297 Hz) holds no FFT bin at 48000 Hz") == std::string::npos, name == "low")
        << ran.err;
  }
  const Audio low = read("low-out.wav"), high = read("high-out.wav");
  EXPECT_EQ(low.rate, 16000);
  ASSERT_EQ(low.channels[0].size(), 16000u);
  EXPECT_NEAR(rmsDb(low.channels[0]), rmsDb(high.channels[0]), 0.5);

  // The pictures stop at the input's own 8 kHz: the spectrum's axis, and the
  // heat map, whose bands starting above it are drawn empty.
  const std::string report = slurp(path("report.svg"));
  EXPECT_THAT(report, AllOf(HasSubstr(">5k<"), Not(HasSubstr(">10k<"))));
  vora_band_info bands[VORA_BAND_COUNT];
  vora_preset_band_layout(32000.0f, bands);
  int firstEmpty = 0;
  while (bands[firstEmpty].lowHz < 8000.0) {
    ++firstEmpty;
  }
  const std::string map = slurp(path("gains.svg"));
  EXPECT_THAT(map, HasSubstr("data-empty-from-band=\"" + std::to_string(firstEmpty) + "\""));
  for (auto& cell : elements(map, "rect")) {
    if (cell.count("data-band") != 0) {
      EXPECT_LT(std::stoi(cell["data-band"]), firstEmpty);
    }
  }
}

} // namespace
} // namespace larkspin_test
