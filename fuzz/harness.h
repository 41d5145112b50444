// What the fuzz targets share: files in memory, a scratch folder, and checks that end the program.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include "slog/slog.h"

namespace quarro::fuzz {

using Input = std::span<const std::uint8_t>;

inline std::string_view TextOf(Input input) {
  return {reinterpret_cast<const char*>(input.data()), input.size()};
}
inline std::span<const std::byte> BytesOf(Input input) { return std::as_bytes(input); }

// Ends the program, as a finding, unless `holds`.
void Require(bool holds, const char* what);

// A file that exists in memory alone, for code that opens a path.
class MemoryFile {
 public:
  MemoryFile();
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  // Replaces what the file holds.
  void Write(Input bytes) const;
  const std::string& path() const { return path_; }

 private:
  int descriptor_;
  std::string path_;
};

// A fresh folder that is the working directory of the process from here on; removed at its end.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  // Removes what is in it.
  void Empty() const;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// Drops what the program says: the messages of its channels, which are composed all the same, and
// what it prints. Findings are told past these streams.
void SilenceChannels();

// Bounds the files of this process, so that an input cannot fill the disc: writes beyond fail.
void LimitFileSize(std::uint64_t bytes);

}  // namespace quarro::fuzz
