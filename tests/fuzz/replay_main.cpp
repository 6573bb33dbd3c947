// Runs a fuzz target over the inputs of the folder given, for compilers without a fuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  int count = 0;
  for (int n = 1; n < argc; ++n) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[n])) {
      std::ifstream in(entry.path(), std::ios::binary);
      const std::string input(std::istreambuf_iterator<char>(in), {});
      std::fprintf(stderr, "%s\n", entry.path().filename().c_str());
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
      ++count;
    }
  }
  return count > 0 ? 0 : 1;
}
