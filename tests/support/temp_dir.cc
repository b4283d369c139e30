#include "support/temp_dir.h"

#include <fstream>
#include <random>

namespace tmx::test {

TempDir::TempDir() {
  std::random_device rd;
  auto base = std::filesystem::temp_directory_path();
  do {
    path_ = base / ("tmxsdk-test-" + std::to_string(rd()));
  } while (!std::filesystem::create_directory(path_));
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

std::filesystem::path TempDir::Write(const std::string& name, const std::string& bytes) const {
  auto p = path_ / name;
  std::ofstream(p, std::ios::binary) << bytes;
  return p;
}

}  // namespace tmx::test
