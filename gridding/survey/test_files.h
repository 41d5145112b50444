// Files for the tests of this folder: scratch directories, and GSF made byte by byte.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <stdexcept>
#include <string>

#include <stdlib.h>

#include "gridding/survey/line_reader.h"

namespace quarro::survey {

// A fresh directory, removed with all in it.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "quarro_XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no scratch directory");
    path_ = name;
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  std::string File(const std::string& name) const { return (path_ / name).string(); }
  std::string Write(const std::string& name, const std::string& bytes) const {
    // A new file each time: some file systems flush one that is cut short and written again.
    std::filesystem::remove(File(name));
    std::ofstream(File(name), std::ios::binary) << bytes;
    return File(name);
  }

 private:
  std::filesystem::path path_;
};

inline std::string BytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline std::string Word16(std::int64_t value) {
  return {static_cast<char>(value >> 8), static_cast<char>(value)};
}
inline std::string Word32(std::int64_t value) { return Word16(value >> 16) + Word16(value); }

// A record: size, identifier, data.
inline std::string Record(std::uint32_t identifier, const std::string& data) {
  return Word32(static_cast<std::int64_t>(data.size())) + Word32(identifier) + data;
}
inline std::string Header(const std::string& version = "GSF-v03.07") {
  return Record(1, version + std::string(12 - version.size(), '\0'));
}

inline std::string Subrecord(std::uint32_t id, const std::string& data) {
  return Word32(static_cast<std::int64_t>(id << 24U | data.size())) + data;
}
struct ScaleEntry {
  std::uint32_t id;
  std::int64_t multiplier;
  std::int64_t offset;
};
inline std::string Scales(std::initializer_list<ScaleEntry> entries) {
  std::string data = Word32(static_cast<std::int64_t>(entries.size()));
  for (const ScaleEntry& entry : entries) {
    data += Word32(entry.id << 24U) + Word32(entry.multiplier) + Word32(entry.offset);
  }
  return Subrecord(100, data);
}

// Metres with two decimals for depth, one for the offsets.
inline std::string UsualScales() { return Scales({{1, 100, 0}, {2, 10, 0}, {3, 10, 0}}); }

struct PingFields {
  double longitude_deg = -64.5;
  double latitude_deg = 17.5;
  int beams = 2;
  int flags = 0;
  double heading_deg = 0.0;
};
inline std::string PingHeader(const PingFields& fields) {
  return Word32(1541193704) + Word32(500000000) +
         Word32(static_cast<std::int64_t>(fields.longitude_deg * 1e7)) +
         Word32(static_cast<std::int64_t>(fields.latitude_deg * 1e7)) + Word16(fields.beams) +
         Word16(0) + Word16(fields.flags) + std::string(6, '\0') + Word16(0) +
         Word16(static_cast<std::int64_t>(fields.heading_deg * 100.0)) + std::string(24, '\0');
}

// Depth 12.34 and 56.78 m, across -1 and 1 m, along 0.
inline std::string TwoBeams() {
  return Subrecord(1, Word16(1234) + Word16(5678)) + Subrecord(2, Word16(-10) + Word16(10)) +
         Subrecord(3, Word16(0) + Word16(0));
}
inline std::string GoodPing() { return Record(2, PingHeader({}) + UsualScales() + TwoBeams()); }

// All that a file gives, in one chunk.
struct WholeLine {
  PingChunk chunk;
  BeamAccount account;
  std::string remark;
};
inline WholeLine ReadWhole(const std::string& path) {
  const auto reader = OpenLine(path);
  WholeLine line;
  PingChunk chunk;
  const auto append = [](auto& to, const auto& from) {
    to.insert(to.end(), from.begin(), from.end());
  };
  while (reader->Next(chunk, line.account)) {
    line.chunk.projected = chunk.projected;
    for (Ping ping : chunk.pings) {
      ping.first_beam += static_cast<std::uint32_t>(line.chunk.beams());
      line.chunk.pings.push_back(ping);
    }
    append(line.chunk.depth_m, chunk.depth_m);
    append(line.chunk.across_m, chunk.across_m);
    append(line.chunk.along_m, chunk.along_m);
    append(line.chunk.sigma_v_m, chunk.sigma_v_m);
    append(line.chunk.sigma_h_m, chunk.sigma_h_m);
    append(line.chunk.unusable, chunk.unusable);
  }
  line.remark = reader->Remark();
  return line;
}

}  // namespace quarro::survey
