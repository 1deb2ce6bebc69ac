// Runs a target once with every file of a folder, for compilers without a fuzzer.
#include <filesystem>
#include <fstream>

#include "fuzz/fuzz.h"

int main(int argc, char** argv) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argc > 1 ? argv[1] : ".")) {
    std::printf("%s\n", entry.path().c_str());
    std::fflush(stdout);
    std::ifstream file(entry.path(), std::ios::binary);
    const qzhid::fuzz::Bytes input{std::istreambuf_iterator<char>(file), {}};
    LLVMFuzzerTestOneInput(input.data(), input.size());
    ++count;
  }
  return count > 0 ? 0 : 1;
}
