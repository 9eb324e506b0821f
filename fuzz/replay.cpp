// Runs a fuzz target over the files of its corpus, once each: what a fuzzer found stays found in
// ordinary test runs. usage: TARGET FOLDER_OR_FILE...

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* inData, std::size_t inSize);

namespace {

unsigned Replay(const std::filesystem::path& inPath) {
  std::ifstream file(inPath, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  // A heap copy of the exact size, so that a sanitizer sees a read past its end.
  const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(exact.data(), exact.size());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  unsigned inputs = 0;
  for (int index = 1; index < argc; ++index) {
    if (std::filesystem::is_directory(argv[index])) {
      for (const auto& entry : std::filesystem::directory_iterator(argv[index])) {
        inputs += Replay(entry.path());
      }
    } else if (std::filesystem::exists(argv[index])) {
      inputs += Replay(argv[index]);
    }
  }
  std::printf("%u inputs\n", inputs);
  return inputs == 0 ? 1 : 0;
}
