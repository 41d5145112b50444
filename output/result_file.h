// The file of one text result, which is on the disc once it is told of, or told as incomplete.
#pragma once

#include <cstddef>
#include <string>

namespace quarro {

// Replaces the file at `path`. One thread at a time.
class ResultFile {
 public:
  // A path that cannot be opened gives no file: nothing is written, and nothing told.
  explicit ResultFile(std::string path);
  // Brings the file to the disc. One that could not be written whole is renamed to
  // PATH.incomplete, and the log names it with the cause.
  ~ResultFile();
  ResultFile(const ResultFile&) = delete;
  ResultFile& operator=(const ResultFile&) = delete;

  // After a failure nothing more is written.
  void Write(const std::string& text);

 private:
  void Sync();
  void TellIncomplete(bool is_regular) const;

  const std::string path_;
  int descriptor_;  // -1: no file
  int error_ = 0;   // the first, as errno
};

}  // namespace quarro
