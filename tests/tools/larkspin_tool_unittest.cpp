// End-to-end tests of the larkspin program: they run the built executable
// on generated files, as a user would.
#include <larkspin/vora_ap.h>

#include "dsp/payload_codec.h"
#include "preset_json/preset_json.h"
#include "support/test_payloads.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Result {
  int status;
  std::string err;
  std::string out;
};

class ToolTest : public testing::Test {
protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("larkspin-tool-" + std::to_string(::getpid()) + "-" +
                                        testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string path(const std::string& name) const { return (dir_ / name).string(); }

  Result run(const std::string& arguments) const {
    const std::string out = path("stdout.txt"), err = path("stderr.txt");
    const std::string command = std::string(LARKSPIN_TOOL_PATH) + " " + arguments + " >" + out + " 2>" + err;
    const int status = std::system(command.c_str());
    return {status, read(err), read(out)};
  }

  static std::string read(const std::string& file) {
    std::ifstream in(file);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }

  // Writes a float WAV file, channel-major input.
  void writeWav(const std::string& name, const std::vector<std::vector<float>>& channels, int rate) const {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = static_cast<int>(channels.size());
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(path(name).c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    std::vector<float> interleaved;
    for (size_t i = 0; i < channels[0].size(); ++i) {
      for (const auto& channel : channels) {
        interleaved.push_back(channel[i]);
      }
    }
    sf_writef_float(file, interleaved.data(), static_cast<sf_count_t>(channels[0].size()));
    sf_close(file);
  }

  std::vector<std::vector<float>> readWav(const std::string& name) const {
    SF_INFO info{};
    SNDFILE* file = sf_open(path(name).c_str(), SFM_READ, &info);
    EXPECT_NE(file, nullptr);
    if (file == nullptr) {
      return {};
    }
    std::vector<float> interleaved(static_cast<size_t>(info.frames * info.channels));
    sf_readf_float(file, interleaved.data(), info.frames);
    sf_close(file);
    std::vector<std::vector<float>> channels(static_cast<size_t>(info.channels));
    for (size_t i = 0; i < interleaved.size(); ++i) {
      channels[i % channels.size()].push_back(interleaved[i]);
    }
    return channels;
  }

  // A single clear line on standard error, a failure status, no output.
  void expectCleanFailure(const Result& result, const std::string& output) const {
    EXPECT_NE(result.status, 0);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_EQ(result.err.rfind("larkspin: error: ", 0), 0u) << result.err;
    EXPECT_FALSE(fs::exists(path(output)));
  }

  fs::path dir_;
};

std::vector<float> noise(size_t frames, unsigned seed, float amplitude) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> sample(-amplitude, amplitude);
  std::vector<float> x(frames);
  for (auto& v : x) {
    v = sample(random);
  }
  return x;
}

// The same file through the C interface directly, in blocks of 256, with
// the output shifted back by the reported latency.
std::vector<float> directAligned(const std::vector<float>& left, const std::vector<float>& right,
                                 const std::vector<unsigned char>& payload) {
  vora_ap_control* control = vora_ap_create_control(48000.0f, 256, 1);
  std::vector<unsigned char> bytes = payload;
  vora_ap_apply_preset_payload(bytes.data());
  vora_ap_set_vorafication_intensity(1.0f);
  const size_t latency = static_cast<size_t>(vora_ap_get_processing_latency(control));
  std::vector<float> l = left, r = right;
  l.resize(left.size() + latency + 256, 0.0f);
  r.resize(l.size(), 0.0f);
  for (size_t start = 0; start + 256 <= l.size(); start += 256) {
    float* channels[2] = {l.data() + start, r.data() + start};
    vora_ap_process(control, channels, 256);
  }
  vora_ap_destroy_control(control);
  return std::vector<float>(l.begin() + static_cast<std::ptrdiff_t>(latency),
                            l.begin() + static_cast<std::ptrdiff_t>(latency + left.size()));
}

TEST_F(ToolTest, ProcessKeepsLengthAndAlignsWithTheLibrary) {
  const std::vector<float> left = noise(48000 + 77, 1u, 0.3f), right = noise(48000 + 77, 2u, 0.3f);
  writeWav("stereo.wav", {left, right}, 48000);
  writeWav("mono.wav", {left}, 48000);

  // A JSON preset round trip gives the payload the tool will use.
  ASSERT_EQ(run("preset decode " + path("missing.bin")).status == 0, false);
  std::vector<unsigned char> payload(vora::kPresetPayloadSize);
  vora::VorafierParameters parameters;
  for (auto& band : parameters.bands) {
    band.gainDb0 = band.gainDb1 = 6.0f;
    band.fastRatio0 = band.fastRatio1 = 0.5f;
    band.fastThresholdDb0 = band.fastThresholdDb1 = -30.0f;
    band.slowDelayMs = 10.0f;
    band.slowTimeConstantMs = 50.0f;
  }
  vora::encodePresetPayload(parameters, payload.data());
  std::ofstream(path("preset.bin"), std::ios::binary).write(reinterpret_cast<const char*>(payload.data()), 196);

  Result result =
      run("process " + path("stereo.wav") + " " + path("out.wav") + " --preset " + path("preset.bin") + " --align");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("latency:       192 frames"), std::string::npos) << result.out;
  const auto out = readWav("out.wav");
  ASSERT_EQ(out.size(), 2u);
  ASSERT_EQ(out[0].size(), left.size());
  const std::vector<float> expected = directAligned(left, right, payload);
  for (size_t i = 0; i < left.size(); ++i) {
    ASSERT_NEAR(out[0][i], expected[i], 1e-6f) << i;
  }

  result = run("process " + path("mono.wav") + " " + path("mono-out.wav") + " --block 100");
  ASSERT_EQ(result.status, 0) << result.err;
  const auto mono = readWav("mono-out.wav");
  ASSERT_EQ(mono.size(), 1u);
  EXPECT_EQ(mono[0].size(), left.size());

  result = run("process " + path("stereo.wav") + " " + path("bypass.wav") + " --bypass --align --report " +
               path("report.svg"));
  ASSERT_EQ(result.status, 0) << result.err;
  const auto bypassed = readWav("bypass.wav");
  for (size_t i = 0; i < left.size(); ++i) {
    ASSERT_NEAR(bypassed[0][i], left[i], 1e-3f) << i;
    ASSERT_NEAR(bypassed[1][i], right[i], 1e-3f) << i;
  }
  EXPECT_TRUE(fs::exists(path("report.svg")));
}

TEST_F(ToolTest, PresetDecodeEncodeRoundTrip) {
  std::mt19937 random(11u);
  for (int trial = 0; trial < 5; ++trial) {
    const larkspin_test::Payload payload = larkspin_test::payloadOf(larkspin_test::randomParameters(random));
    std::ofstream(path("in.bin"), std::ios::binary).write(reinterpret_cast<const char*>(payload.data()), 196);
    const Result decoded = run("preset decode " + path("in.bin"));
    ASSERT_EQ(decoded.status, 0) << decoded.err;
    std::ofstream(path("preset.json")) << decoded.out;
    const Result encoded = run("preset encode " + path("preset.json") + " " + path("out.bin"));
    ASSERT_EQ(encoded.status, 0) << encoded.err;
    const std::string bytes = read(path("out.bin"));
    ASSERT_EQ(std::vector<unsigned char>(bytes.begin(), bytes.end()),
              std::vector<unsigned char>(payload.begin(), payload.end()))
        << trial;
  }
}

TEST_F(ToolTest, BadInputGivesOneClearLine) {
  expectCleanFailure(run("process " + path("missing.wav") + " " + path("out.wav")), "out.wav");

  writeWav("three.wav", {noise(4800, 1u, 0.1f), noise(4800, 2u, 0.1f), noise(4800, 3u, 0.1f)}, 48000);
  expectCleanFailure(run("process " + path("three.wav") + " " + path("out.wav")), "out.wav");

  writeWav("slow.wav", {noise(800, 1u, 0.1f)}, 8000);
  expectCleanFailure(run("process " + path("slow.wav") + " " + path("out.wav")), "out.wav");

  std::ofstream(path("broken.json")) << "{\"bands\": [1, 2";
  expectCleanFailure(run("preset encode " + path("broken.json") + " " + path("out.bin")), "out.bin");

  // A valid preset with one value out of range names where it is.
  std::vector<unsigned char> payload(vora::kPresetPayloadSize);
  vora::VorafierParameters parameters;
  vora::encodePresetPayload(parameters, payload.data());
  std::ofstream(path("zero.bin"), std::ios::binary).write(reinterpret_cast<const char*>(payload.data()), 196);
  std::string json = run("preset decode " + path("zero.bin")).out;
  const size_t at = json.find("\"fastRatio\": 0.0");
  ASSERT_NE(at, std::string::npos) << json;
  json.replace(at, 16, "\"fastRatio\": 1.5");
  std::ofstream(path("bad.json")) << json;
  const Result result = run("preset encode " + path("bad.json") + " " + path("out.bin"));
  expectCleanFailure(result, "out.bin");
  EXPECT_NE(result.err.find("band 0, channel 0, fastRatio = 1.5"), std::string::npos) << result.err;
}

vora_preset presetOf(const std::string& json) {
  return larkspin_json::parse(json, "output").values;
}

bool samePreset(const vora_preset& a, const vora_preset& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST_F(ToolTest, StartingPointsAndOverrides) {
  // The default preset: as the library has it, and stable through a payload.
  const Result shown = run("preset default");
  ASSERT_EQ(shown.status, 0) << shown.err;
  vora_preset expected;
  vora_preset_default(&expected);
  EXPECT_TRUE(samePreset(presetOf(shown.out), expected));
  std::ofstream(path("default.json")) << shown.out;
  ASSERT_EQ(run("preset encode " + path("default.json") + " " + path("default.bin")).status, 0);
  EXPECT_EQ(run("preset decode " + path("default.bin")).out, shown.out);

  // Every shipped preset is stored exactly: no refusals, no rounding notes.
  int shipped = 0;
  for (const auto& entry : fs::directory_iterator(fs::path(LARKSPIN_SOURCE_DIR) / "presets")) {
    const Result encoded = run("preset encode " + entry.path().string() + " " + path("shipped.bin"));
    EXPECT_EQ(encoded.status, 0) << entry.path();
    EXPECT_EQ(encoded.err, "") << entry.path();
    ++shipped;
  }
  EXPECT_GE(shipped, 3);

  // --set changes exactly the named values.
  const Result set = run("preset default --set band3.gainDb=4 --set all.ch1.fastRatio=0.25 --set band12.slowDelayMs=7");
  ASSERT_EQ(set.status, 0) << set.err;
  expected.bands[3].channels[0].gainDb = expected.bands[3].channels[1].gainDb = 4.0f;
  for (auto& band : expected.bands) {
    band.channels[1].fastRatio = 0.25f;
  }
  expected.bands[12].slowDelayMs = 7.0f;
  EXPECT_TRUE(samePreset(presetOf(set.out), expected));

  // Unknown names and values the JSON reader refuses, for both commands.
  for (const char* bad : {"band13.gainDb=1", "band3.ch2.gainDb=1", "band3.loudness=1", "gainDb=1", "band3.gainDb=4dB",
                          "band3.gainDb=99", "all.fastRatio=1.5", "band3.ch0.slowFactor=0.5", "band3.gainDb"}) {
    expectCleanFailure(run(std::string("plot --set ") + bad + " " + path("bands.svg")), "bands.svg");
  }
  writeWav("tone.wav", {noise(4800, 1u, 0.1f)}, 48000);
  expectCleanFailure(run("process " + path("tone.wav") + " " + path("out.wav") + " --set all.slowFactor=2"), "out.wav");

  // Rounding is summarised in one line; encode lists every value.
  const Result rounded = run("plot --set all.fastRatio=0.3 " + path("bands.svg"));
  ASSERT_EQ(rounded.status, 0) << rounded.err;
  EXPECT_EQ(rounded.err, "larkspin: note: 26 values rounded to the payload's steps; see `larkspin preset encode`\n");
  std::ofstream(path("rounded.json")) << run("preset default --set all.fastRatio=0.3").out;
  const Result listed = run("preset encode " + path("rounded.json") + " " + path("rounded.bin"));
  EXPECT_EQ(std::count(listed.err.begin(), listed.err.end(), '\n'), 26) << listed.err;
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

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
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
  const std::string bands = read(path("bands.svg"));
  ASSERT_TRUE(wellFormed(bands));
  // The first panel's fourteen band lines differ in colour or dash.
  const std::string first = bands.substr(0, bands.find("clipPath id=\"panel1\""));
  std::set<std::string> styles;
  int lines = 0;
  for (auto& polyline : elements(first, "polyline")) {
    styles.insert(polyline["stroke"] + " " + polyline["stroke-dasharray"]);
    ++lines;
  }
  EXPECT_EQ(lines, 14);
  EXPECT_EQ(styles.size(), 14u);
  for (const char* text :
       {"Band responses", "band weight (dB)", "Combined response at unity gains",
        "Fixed band gains of the default preset", "gain (dB)", "band 13: no controls", "frequency (Hz)"}) {
    EXPECT_TRUE(contains(bands, text)) << text;
  }

  ASSERT_EQ(run("plot --curves --set band2.ch1.fastRatio=0 " + path("curves.svg")).status, 0);
  const std::string curves = read(path("curves.svg"));
  EXPECT_TRUE(wellFormed(curves));
  EXPECT_TRUE(contains(curves, "band 2 ch1") && !contains(curves, "band 3 ch1"));
  expectCleanFailure(run("plot " + path("bands.png")), "bands.png");

  // The spectrum report says what it shows, and that silence is silence.
  writeWav("quiet.wav", {std::vector<float>(48000, 0.0f)}, 48000);
  const Result silent =
      run("process " + path("quiet.wav") + " " + path("out.wav") + " --intensity 0.5 --report " + path("report.svg"));
  ASSERT_EQ(silent.status, 0) << silent.err;
  const std::string report = read(path("report.svg"));
  EXPECT_TRUE(wellFormed(report));
  EXPECT_TRUE(contains(report, "quiet.wav, preset the default preset, intensity 0.50")) << report;
  EXPECT_TRUE(contains(report, "input (silent)") && contains(report, "output (silent)"));
  expectCleanFailure(run("process " + path("quiet.wav") + " " + path("out2.wav") + " --report " + path("r.png")),
                     "out2.wav");

  const Result demo = run("demo " + path("demo"));
  ASSERT_EQ(demo.status, 0) << demo.err;
  for (const char* file : {"input.wav", "output.wav", "report.svg", "bands.svg", "curves.svg", "gains.svg"}) {
    EXPECT_TRUE(fs::exists(path(std::string("demo/") + file))) << file;
  }
  EXPECT_TRUE(wellFormed(read(path("demo/report.svg"))) && wellFormed(read(path("demo/gains.svg"))));
  expectCleanFailure(run("plot --rate 8000 " + path("low.svg")), "low.svg");
}

// The heat map shows what the library's band read-out reports: for a steady
// tone in band 8, 2:1 above -20 dB, the compressor's gain, and 0 dB elsewhere.
TEST_F(ToolTest, GainMapShowsTheDynamics) {
  constexpr double kAmplitude = 0.3, kToneHz = 2812.5;
  std::vector<float> tone(48000);
  for (size_t i = 0; i < tone.size(); ++i) {
    tone[i] =
        static_cast<float>(kAmplitude * std::sin(2.0 * std::numbers::pi * kToneHz * static_cast<double>(i) / 48000));
  }
  writeWav("tone.wav", {tone, tone}, 48000);
  const Result result =
      run("process " + path("tone.wav") + " " + path("out.wav") + " --preset " + LARKSPIN_SOURCE_DIR +
          "/presets/neutral.json --set all.fastRatio=0.5 --set all.fastThresholdDb=-20 --gains " + path("gains.svg"));
  ASSERT_EQ(result.status, 0) << result.err;
  const std::string map = read(path("gains.svg"));
  ASSERT_TRUE(wellFormed(map));
  EXPECT_TRUE(contains(map, "Band gains over time: tone.wav") && contains(map, "Input level"));
  const double expectedDb = (0.5 - 1.0) * (20.0 * std::log10(kAmplitude) + 20.0);
  // Each row (band and channel) is a sequence of runs; check the one that
  // covers 0.7 s, when the tone has long settled.
  int checked = 0, row = -1;
  double covering = NAN;
  const auto finishRow = [&] {
    if (row == 8 || (row >= 0 && row < 5)) {
      EXPECT_NEAR(covering, row == 8 ? expectedDb : 0.0, 0.3) << row;
      ++checked;
    }
  };
  for (auto& cell : elements(map, "rect")) {
    if (cell.count("data-band") == 0) {
      continue;
    }
    const int band = std::stoi(cell["data-band"]);
    if (band != row) {
      finishRow();
      row = band;
      covering = NAN;
    }
    if (std::stod(cell["data-time"]) <= 0.7) {
      covering = std::stod(cell["data-db"]);
    }
  }
  finishRow();
  EXPECT_GE(checked, 12); // each band and channel at least once
}

// A 16 kHz file comes back at 16 kHz with its length, about as loud as the
// same material processed at 48 kHz; without --resample the error names it.
TEST_F(ToolTest, ResamplesRatesTheLibraryDoesNotTake) {
  const auto material = [](int rate) {
    std::vector<float> x(static_cast<size_t>(rate));
    for (size_t i = 0; i < x.size(); ++i) {
      const double t = static_cast<double>(i) / rate;
      x[i] = static_cast<float>(0.2 * std::sin(2.0 * std::numbers::pi * 440.0 * t) +
                                0.1 * std::sin(2.0 * std::numbers::pi * 2500.0 * t) +
                                0.05 * std::sin(2.0 * std::numbers::pi * 5000.0 * t));
    }
    return x;
  };
  const auto rmsDb = [](const std::vector<float>& x) {
    double sum = 0.0;
    for (size_t i = x.size() / 4; i < x.size() * 3 / 4; ++i) {
      sum += static_cast<double>(x[i]) * x[i];
    }
    return 10.0 * std::log10(sum / static_cast<double>(x.size() / 2));
  };
  writeWav("low.wav", {material(16000)}, 16000);
  writeWav("high.wav", {material(48000)}, 48000);
  const Result refused = run("process " + path("low.wav") + " " + path("low-out.wav"));
  expectCleanFailure(refused, "low-out.wav");
  EXPECT_TRUE(contains(refused.err, "--resample")) << refused.err;

  ASSERT_EQ(run("process --resample --align " + path("low.wav") + " " + path("low-out.wav")).status, 0);
  ASSERT_EQ(run("process --align " + path("high.wav") + " " + path("high-out.wav")).status, 0);
  SF_INFO info{};
  SNDFILE* file = sf_open(path("low-out.wav").c_str(), SFM_READ, &info);
  ASSERT_NE(file, nullptr);
  sf_close(file);
  EXPECT_EQ(info.samplerate, 16000);
  const auto low = readWav("low-out.wav"), high = readWav("high-out.wav");
  ASSERT_EQ(low[0].size(), 16000u);
  EXPECT_NEAR(rmsDb(low[0]), rmsDb(high[0]), 0.5);
}

} // namespace
