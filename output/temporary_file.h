// A file under a name of its own that goes with its owner unless it is kept.
#pragma once

#include <string>

namespace quarro {

// Made in one step with its name, for this user alone, and deleted by the destructor unless kept.
class TemporaryFile {
 public:
  // `pattern` ends in XXXXXX, which six characters replace.
  explicit TemporaryFile(const std::string& pattern);
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile();

  // False when the file could not be made; its path is then one that was tried.
  bool Made() const { return made_; }
  const std::string& path() const { return path_; }

  // Writes all of `text` and closes the file; to be called once. False, with errno telling why,
  // when not all of it could be written.
  bool WriteAndClose(const std::string& text);

  // The file stays.
  void Keep() { kept_ = true; }

 private:
  std::string path_;
  int descriptor_;
  const bool made_;
  bool kept_ = false;
};

}  // namespace quarro
