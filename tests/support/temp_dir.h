// A fresh directory under the system's temporary directory, removed with
// everything in it when the object goes.
#pragma once

#include <filesystem>
#include <string>

namespace tmx::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }
  // Writes `bytes` to a file `name` in the directory and returns its path.
  std::filesystem::path Write(const std::string& name, const std::string& bytes) const;

 private:
  std::filesystem::path path_;
};

}  // namespace tmx::test
