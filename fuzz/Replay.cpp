// The main of a fuzz target built without libFuzzer: runs the target once on
// every file below each directory given, in name order, as libFuzzer would
// (the bytes in a heap buffer of exactly their size), and says how many it
// ran. A crash or a failed check ends it, naming the file first.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    // A target without regressions has no folder for them.
    if (!fs::exists(argv[i])) continue;
    std::vector<fs::path> files;
    for (auto const& entry : fs::recursive_directory_iterator(argv[i])) {
      if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (auto const& file : files) {
      std::fprintf(stderr, "%s\n", file.c_str());
      std::ifstream in(file, std::ios::binary);
      std::vector<char> const chars{std::istreambuf_iterator<char>(in), {}};
      std::vector<std::uint8_t> const bytes(chars.begin(), chars.end());
      LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
      ++count;
    }
  }
  std::printf("replayed %zu inputs\n", count);
  return count != 0 ? 0 : 1;
}
