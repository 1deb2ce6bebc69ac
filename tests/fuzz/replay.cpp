// Runs a target once with every file of a folder, for compilers without a fuzzer.
#include <filesystem>
#include <fstream>

#include "fuzz/fuzz.h"

int main(int, char** argv) {
  const std::filesystem::directory_iterator folder(argv[1]);
  if (begin(folder) == end(folder)) return 1;
  for (const auto& entry : folder) {
    std::ifstream file(entry.path(), std::ios::binary);
    const qzhid::fuzz::Bytes input{std::istreambuf_iterator<char>(file), {}};
    std::fprintf(stderr, "%s\n", entry.path().c_str());
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  return 0;
}
