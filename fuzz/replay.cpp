// Runs a fuzz target over the inputs of a folder: what was found once stays mended, with any compiler.
#include <cstdint>
#include <cstdio>
#include <set>

#include "testkit/Files.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
  if (argc != 2) return std::fputs("Give the folder of the inputs.\n", stderr), 2;
  if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
  std::set<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) paths.insert(entry.path());
  for (const auto& path : paths) {
    std::fprintf(stderr, "%s\n", path.c_str());  // the last one is the one that failed
    const std::string input = testkit::Contents(path);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
  }
  return paths.empty() ? 1 : 0;
}
