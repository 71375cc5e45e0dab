// Runs the built larkspin program in a scratch directory and reads and
// writes the audio files it works on.
#pragma once

#include <gtest/gtest.h>
#include <sndfile.hh>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace larkspin_test {

struct ToolRun {
  int status; // exit status
  std::string out, err;
};

// Channel-major samples and the file's rate.
struct Audio {
  int rate = 0;
  std::vector<std::vector<float>> channels;
};

class ToolRunner : public testing::Test {
protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() / ("larkspin-tool-" + std::to_string(::getpid()) + "-" +
                                                     testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string path(const std::string& name) const { return (dir_ / name).string(); }

  // Makes an audio file with sox; `synthesis` follows the output file name.
  void synthesize(const std::string& name, int rate, int channels, const std::string& synthesis) const {
    const std::string command = "sox -n -r " + std::to_string(rate) + " -c " + std::to_string(channels) +
                                " -e floating-point -b 32 " + path(name) + " " + synthesis;
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
  }

  // `arguments` is a shell fragment; the program's name goes in front.
  // Standard output goes to `stdoutTo`, or else is captured.
  ToolRun run(const std::string& arguments, const std::string& stdoutTo = "") const {
    const std::string out = stdoutTo.empty() ? path("stdout.txt") : stdoutTo, err = path("stderr.txt");
    const std::string command = std::string(LARKSPIN_TOOL_PATH) + " " + arguments + " >" + out + " 2>" + err;
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, stdoutTo.empty() ? slurp(out) : "", slurp(err)};
  }

  // Runs a command that must succeed; returns its standard output.
  std::string succeed(const std::string& arguments) const {
    const ToolRun result = run(arguments);
    EXPECT_EQ(result.status, 0) << arguments << "\n" << result.err;
    return result.out;
  }

  static std::string slurp(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }

  void write(const std::string& name, const Audio& audio, int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT) const {
    SndfileHandle file(path(name), SFM_WRITE, format, static_cast<int>(audio.channels.size()), audio.rate);
    ASSERT_EQ(file.error(), 0) << file.strError();
    std::vector<float> interleaved;
    for (size_t i = 0; i < audio.channels[0].size(); ++i) {
      for (const auto& channel : audio.channels) {
        interleaved.push_back(channel[i]);
      }
    }
    file.writef(interleaved.data(), static_cast<sf_count_t>(audio.channels[0].size()));
  }

  // The file's samples and rate.
  Audio read(const std::string& name) const {
    SndfileHandle file(path(name));
    EXPECT_EQ(file.error(), 0) << name;
    Audio audio{file.samplerate(), std::vector<std::vector<float>>(static_cast<size_t>(file.channels()))};
    // To the end, chunk by chunk: a streamed file need not say its length.
    std::vector<float> interleaved(4096 * audio.channels.size());
    for (sf_count_t got; (got = file.readf(interleaved.data(), 4096)) > 0;) {
      for (size_t i = 0; i < static_cast<size_t>(got) * audio.channels.size(); ++i) {
        audio.channels[i % audio.channels.size()].push_back(interleaved[i]);
      }
    }
    return audio;
  }

  // Noise on a 16-bit grid, so that both integer and float files hold it
  // exactly; it starts with exact silence.
  static Audio testSignal(int rate, int channels, long frames, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> sample(-20000, 20000);
    Audio audio{rate, std::vector<std::vector<float>>(static_cast<size_t>(channels))};
    for (auto& channel : audio.channels) {
      for (long i = 0; i < frames; ++i) {
        channel.push_back(i < 100 ? 0.0f : static_cast<float>(sample(random)) / 32768.0f);
      }
    }
    return audio;
  }

  std::filesystem::path dir_;
};

} // namespace larkspin_test
