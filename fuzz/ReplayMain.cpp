// Runs a fuzz target on every file of a folder; a target that finds a fault aborts.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    std::cout << entry.path().filename().string() << '\n' << std::flush;
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
    ++count;
  }
  return count > 0 ? 0 : 1;
}
