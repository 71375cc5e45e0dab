// Replays fuzz inputs through a target without libFuzzer: every file named
// on the command line, and every file of every directory named, in name
// order. A crash or a failed check aborts; otherwise the exit status is 0.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void replay(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const std::vector<uint8_t> bytes(content.begin(), content.end());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

} // namespace

int main(int argc, char** argv) {
  size_t replayed = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path argument(argv[i]);
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(argument)) {
      for (const auto& entry : std::filesystem::directory_iterator(argument)) {
        if (entry.is_regular_file()) {
          files.push_back(entry.path());
        }
      }
    } else {
      files.push_back(argument);
    }
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
      replay(file);
      ++replayed;
    }
  }
  std::fprintf(stderr, "replayed %zu inputs\n", replayed);
  return replayed > 0 ? 0 : 1;
}
