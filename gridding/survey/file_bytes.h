// The bytes of a survey file, read by position.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace quarro::survey {

// By which a file is known for the same one, with the same bytes in it.
struct FileStamp {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint64_t size = 0;
  std::int64_t modified_s = 0;  // since 1970-01-01 UTC
  std::int64_t modified_ns = 0;

  friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

// A regular file open for reading. Read, not mapped: a file that another program cuts short, or a
// disc that fails, is an error here where a mapping would be a signal that ends the engine; the
// copy costs about a nanosecond a sounding. Any thread may read.
class FileBytes {
 public:
  // Throws LineError for a file that is missing, empty, no regular file, or not to be opened.
  explicit FileBytes(const std::string& path);
  ~FileBytes();
  FileBytes(const FileBytes&) = delete;
  FileBytes& operator=(const FileBytes&) = delete;

  const std::string& path() const { return path_; }
  // As it was when opened.
  std::uint64_t size() const { return stamp_.size; }
  const FileStamp& stamp() const { return stamp_; }
  // As it is now, whatever bears its name by now. Throws LineError when the system cannot tell.
  FileStamp StampNow() const;

  // Fills `out` with the bytes from `offset` on and returns how many there were: fewer than asked
  // for at the end of the file alone. Throws LineError when the system cannot read.
  std::size_t ReadAt(std::uint64_t offset, std::span<std::byte> out) const;

 private:
  std::string path_;
  int descriptor_ = -1;
  FileStamp stamp_;
};

// A buffered view of a file that moves forward. One thread at a time.
class FileWindow {
 public:
  explicit FileWindow(const std::string& path) : file_(path) {}

  const FileBytes& file() const { return file_; }

  // The `size` bytes from `offset` on, fewer at the end of the file; valid until the next call.
  // Allocates no more than the file still holds. Throws LineError when the system cannot read.
  std::span<const std::byte> Get(std::uint64_t offset, std::size_t size);

 private:
  static constexpr std::size_t kBufferBytes = std::size_t{1} << 20;

  FileBytes file_;
  std::vector<std::byte> buffer_;
  std::uint64_t begin_ = 0;
  std::size_t length_ = 0;
};

}  // namespace quarro::survey
