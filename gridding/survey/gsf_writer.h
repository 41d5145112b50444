// Writes survey lines in the Generic Sensor Format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <limits>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "gridding/survey/gsf_decode.h"

namespace quarro::survey {

// What one array of a ping looks like in the file.
struct GsfArrayFormat {
  std::size_t width = 0;        // bytes an element: 1, 2 or 4; 0 takes 2 where they hold the values
  std::int32_t multiplier = 0;  // steps a metre
  std::int32_t offset = 0;      // stored = (value + offset) * multiplier

  friend bool operator==(const GsfArrayFormat&, const GsfArrayFormat&) = default;
};

struct GsfFormat {
  int major = 3;
  int minor = 7;
  bool checksums = false;
  // In each ping; without it only where they differ from the last, so that a lost ping loses
  // others.
  bool repeat_scale_factors = true;
  GsfArrayFormat depth{0, 1000, 0};
  GsfArrayFormat across{0, 100, 0};
  GsfArrayFormat along{0, 100, 0};
  GsfArrayFormat vertical_error{2, 0, 0};    // multiplier 0: the finest of 1000, 100, 10 and 1 that
  GsfArrayFormat horizontal_error{2, 0, 0};  // holds the values of the ping
};

// A ping to write. Arrays are metres, of equal length or empty; an empty one is left out.
struct GsfPing {
  std::int64_t time_ns = 0;  // since 1970-01-01 UTC
  double longitude_deg = 0.0;
  double latitude_deg = 0.0;
  double heading_deg = 0.0;
  double course_deg = 0.0;
  double speed_knots = 0.0;
  bool unusable = false;
  std::size_t beams = 0;
  std::span<const float> depth_m;
  std::span<const float> across_m;
  std::span<const float> along_m;
  std::span<const float> vertical_error_m;    // 95 %
  std::span<const float> horizontal_error_m;  // 95 %, radial
  std::span<const std::uint8_t> beam_flags;   // bit 0 set: not to be used
};

// Writes one file from its start. One thread at a time. Everything throws LineError with path and
// reason when the file cannot be written, and for a value that its array cannot hold. A file that
// was not closed lacks what is still buffered and its summary.
class GsfWriter {
 public:
  explicit GsfWriter(const std::string& path, const GsfFormat& format = {});

  void WriteComment(std::int64_t time_ns, std::string_view text);
  void WriteHistory(std::int64_t time_ns, std::string_view machine, std::string_view user,
                    std::string_view command, std::string_view comment);
  void WritePing(const GsfPing& ping);
  // Writes the summary of the pings and closes the file.
  void Close();

 private:
  struct Extent {
    double least = std::numeric_limits<double>::infinity();
    double greatest = -std::numeric_limits<double>::infinity();
    void Add(double value);
  };

  void WriteSummary();
  void AddToSummary(const GsfPing& ping);
  // Frames `record_` as a record of this type and hands it to the file.
  void WriteRecord(std::uint32_t type);
  void AppendPingHeader(const GsfPing& ping);
  void AppendScaleFactors();
  void AppendArray(std::uint32_t id, std::span<const float> values);
  [[noreturn]] void FailToWrite() const;
  [[noreturn]] void Fail(const std::string& reason) const;

  std::string path_;
  GsfFormat format_;
  std::ofstream file_;
  std::vector<std::byte> record_;  // the data of the one being made
  // Of the arrays of the ping being written, and as last told in the file, by subrecord.
  std::map<std::uint32_t, GsfArrayFormat> formats_;
  std::map<std::uint32_t, GsfArrayFormat> told_formats_;
  std::int64_t first_time_ns_ = 0;
  std::int64_t last_time_ns_ = 0;
  std::uint64_t pings_ = 0;
  Extent longitude_deg_;
  Extent latitude_deg_;
  Extent depth_m_;
};

}  // namespace quarro::survey
