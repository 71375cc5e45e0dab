// Replays a directory of fuzz inputs through a target without libFuzzer. A
// crash or a failed check aborts; an empty or missing directory fails.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  size_t replayed = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argc > 1 ? argv[1] : "")) {
    std::ifstream file(entry.path(), std::ios::binary);
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    ++replayed;
  }
  std::fprintf(stderr, "replayed %zu inputs\n", replayed);
  return replayed == 0 ? 1 : 0;
}
