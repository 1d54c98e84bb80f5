// The main function without libFuzzer: runs a fuzz target once over each of its seeds.
//
//   RxPktFuzz fuzz/seeds/RxPktFuzz
//   RxPktFuzz some-finding
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputsOf(const fs::path& place) {
  if (!fs::is_directory(place)) return {place};
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(place)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool replayed(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    std::fprintf(stderr, "%s: cannot be opened\n", path.c_str());
    return false;
  }
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  std::printf("%s: %zu bytes\n", path.c_str(), bytes.size());
  std::fflush(stdout);  // so that the last name printed is that of the input that crashes
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t runs = 0;
  for (int at = 1; at < argc; ++at) {
    for (const fs::path& path : inputsOf(argv[at])) {
      if (!replayed(path)) return 1;
      ++runs;
    }
  }
  if (runs == 0) {
    std::fprintf(stderr, "usage: %s FILE-OR-FOLDER...; there must be an input\n", argv[0]);
    return 2;
  }
  std::printf("%zu inputs\n", runs);
}
