// A fresh directory for one test, removed with all that it holds.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include <stdlib.h>

namespace quarro {

class TestDirectory {
 public:
  TestDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "quarro_test.XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make " + pattern);
    path_ = pattern;
  }
  TestDirectory(const TestDirectory&) = delete;
  TestDirectory& operator=(const TestDirectory&) = delete;
  ~TestDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  // The path of the directory, and of a file in it that need not exist.
  std::string Path() const { return path_.string(); }
  std::string Path(const std::string& name) const { return (path_ / name).string(); }

  // Writes a file of this content and gives its path.
  std::string Write(const std::string& name, const std::string& content) const {
    std::ofstream(path_ / name, std::ios::binary) << content;
    return Path(name);
  }

 private:
  std::filesystem::path path_;
};

inline std::string ReadWholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace quarro
