// Survey lines in the Generic Sensor Format, versions 2 and 3.
#pragma once

#include <cstdint>
#include <string>

#include "gridding/survey/file_bytes.h"
#include "gridding/survey/gsf_ping.h"
#include "gridding/survey/line_reader.h"

namespace quarro::survey {

// Walks the records of a file and decodes its pings; skips what it does not know by size. What is
// damaged gives no sounding and is told in the remark: a record that runs past the end of the file
// ends the line, a ping that cannot be one or fails its checksum is left out whole.
class GsfReader : public LineReader {
 public:
  // Throws LineError when `path` cannot be opened or does not begin as GSF.
  explicit GsfReader(const std::string& path);

  bool Next(PingChunk& chunk, BeamAccount& account) override;
  std::string Remark() const override;
  FileStamp StampNow() const override { return window_.file().StampNow(); }

 private:
  struct Record {
    std::uint64_t offset = 0;  // of its first word in the file
    std::uint64_t data = 0;    // of its first byte of data
    std::uint32_t size = 0;
    std::uint32_t type = 0;  // with the registry number
    bool has_checksum = false;
    std::uint32_t checksum = 0;
  };

  // The record at position_, which it moves behind. False at the end of what can be read.
  bool NextRecord(Record& record);
  void TakeHeader(const Record& record);
  void TakePing(const Record& record, PingChunk& chunk);
  // The data of a record, empty with a remark when its checksum is wrong or the file has shrunk.
  std::span<const std::byte> Data(const Record& record);
  void Note(std::uint64_t offset, const std::string& problem);

  FileWindow window_;
  std::uint64_t position_ = 0;
  std::size_t ping_header_bytes_ = 0;
  gsf::PingDecoder decoder_;
  bool any_ping_ = false;
  std::string first_problem_;
  std::uint64_t problems_ = 0;
};

}  // namespace quarro::survey
