#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<char> Contents(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace

/// Feeds every file of the folders named to the fuzz target. Fails when there is no file: a corpus that got lost must
/// not look like one that passed.
int main(int argc, char** argv) {
  int files = 0;
  for (int i = 1; i < argc; ++i) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(argv[i], error)) {
      if (!entry.is_regular_file()) continue;
      const std::vector<char> bytes = Contents(entry.path());
      std::printf("%s, %zu bytes\n", entry.path().filename().c_str(), bytes.size());
      std::fflush(stdout);
      // A copy of the exact size on the heap: a read beyond its end is seen by AddressSanitizer.
      const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
      LLVMFuzzerTestOneInput(input.data(), input.size());
      ++files;
    }
  }
  std::printf("%d files\n", files);
  return files > 0 ? 0 : 1;
}
