// Survey-line files as runs of pings.
#pragma once

#include <memory>
#include <string>

#include "gridding/survey/file_bytes.h"
#include "gridding/survey/soundings.h"
#include "support/exceptions.h"

namespace quarro::survey {

// A line file that cannot be read at all: missing, a directory, empty, not of a known format, or
// without one whole ping. The text names the file, what is wrong and, where it helps, the offset.
class LineError : public ExQuarro {
 public:
  using ExQuarro::ExQuarro;
};

// Reads one file from its start to its end. One thread at a time.
class LineReader {
 public:
  virtual ~LineReader() = default;

  // Clears `chunk` and fills it with the pings that follow, in file order: as many whole pings as
  // it takes to reach kBeamsPerChunk beams or kPingsPerChunk pings, the same for every run over the
  // same bytes. Adds pings, soundings_per_ping and read to `account`. False, and an empty chunk, at
  // the end. Throws LineError when not one whole ping could be read from the file.
  virtual bool Next(PingChunk& chunk, BeamAccount& account) = 0;

  // What a person should know of a file that was read in part ("record at byte 1234 runs past the
  // end of the file"); empty when it was whole. Valid after Next gave false.
  virtual std::string Remark() const = 0;

  // The file that is read, as it is now. Throws LineError when the system cannot tell.
  virtual FileStamp StampNow() const = 0;

  static constexpr std::size_t kBeamsPerChunk = 65536;
  static constexpr std::size_t kPingsPerChunk = 65536;  // bounds a file of pings without beams
};

// Opens a file by its extension, whatever its case: .xyz and .txt hold projected x y z, .llz and
// .lld longitude latitude depth, anything else is GSF. Throws LineError.
std::unique_ptr<LineReader> OpenLine(const std::string& path);

}  // namespace quarro::survey
