// Writes survey lines in the Generic Sensor Format.
#include "gridding/survey/gsf_writer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <system_error>

#include "gridding/survey/gsf_format.h"
#include "gridding/survey/line_reader.h"

namespace quarro::survey {
namespace {

using Bytes = std::vector<std::byte>;

template <typename Word>
void Append(Bytes& out, Word value) {
  const Word stored = gsf::FromBigEndian(value);  // the same swap in both directions
  const auto* bytes = reinterpret_cast<const std::byte*>(&stored);
  out.insert(out.end(), bytes, bytes + sizeof stored);
}
void AppendI16(Bytes& out, std::int64_t value) { Append(out, static_cast<std::uint16_t>(value)); }
void AppendI32(Bytes& out, std::int64_t value) { Append(out, static_cast<std::uint32_t>(value)); }

void AppendText(Bytes& out, std::string_view text) {
  const auto* bytes = reinterpret_cast<const std::byte*>(text.data());
  out.insert(out.end(), bytes, bytes + text.size());
}

void AppendShortText(Bytes& out, std::string_view text) {
  const std::string_view held = text.substr(0, 32767);
  AppendI16(out, static_cast<std::int64_t>(held.size()));
  AppendText(out, held);
}

void AppendTime(Bytes& out, std::int64_t time_ns) {
  constexpr std::int64_t kSecond_ns = 1'000'000'000;
  std::int64_t seconds = time_ns / kSecond_ns;
  if (time_ns % kSecond_ns < 0) --seconds;
  AppendI32(out, seconds);
  AppendI32(out, time_ns - seconds * kSecond_ns);
}

bool IsSigned(std::uint32_t id) { return id == gsf::kAcross || id == gsf::kAlong; }

// The stored values that an array of this width holds.
struct Range {
  double least;
  double greatest;
};
Range RangeOf(std::uint32_t id, std::size_t width) {
  const double values = std::ldexp(1.0, static_cast<int>(8 * width));
  if (IsSigned(id)) return {-values / 2, values / 2 - 1};
  return {0.0, values - 1};
}

// A value as it is stored, rounded to the nearest step. Not std::round, a call a value.
double Stored(double value, const GsfArrayFormat& format) {
  const double steps = (value + format.offset) * format.multiplier;
  if (!(std::abs(steps) < 1e15)) return std::numeric_limits<double>::infinity();
  return static_cast<double>(static_cast<std::int64_t>(steps + (steps < 0.0 ? -0.5 : 0.5)));
}

bool Holds(std::uint32_t id, const GsfArrayFormat& format, std::span<const float> values) {
  const Range range = RangeOf(id, format.width);
  const auto [least, greatest] = std::minmax_element(values.begin(), values.end());
  return Stored(*least, format) >= range.least && Stored(*greatest, format) <= range.greatest;
}

// Fills in what the format leaves to the values: the multiplier, then the width.
GsfArrayFormat Chosen(std::uint32_t id, GsfArrayFormat format, std::span<const float> values) {
  const bool any_width = format.width == 0;
  if (any_width) format.width = 2;
  if (format.multiplier == 0) {
    for (const std::int32_t multiplier : {1000, 100, 10, 1}) {
      format.multiplier = multiplier;
      if (Holds(id, format, values)) break;
    }
  }
  if (any_width && !Holds(id, format, values)) format.width = 4;
  return format;
}

std::uint32_t WidthFlag(std::size_t width) { return static_cast<std::uint32_t>(width) << 4U; }

std::int64_t Degrees1e7(double degrees) { return std::llround(degrees * 1e7); }

}  // namespace

void GsfWriter::Extent::Add(double value) {
  least = std::min(least, value);
  greatest = std::max(greatest, value);
}

GsfWriter::GsfWriter(const std::string& path, const GsfFormat& format)
    : path_(path), format_(format) {
  errno = 0;
  file_.open(path, std::ios::binary | std::ios::trunc);
  if (!file_) FailToWrite();
  std::array<char, 16> version{};
  std::snprintf(version.data(), version.size(), "GSF-v%02d.%02d", format.major % 100,
                format.minor % 100);
  AppendText(record_, std::string_view(version.data(), 12));
  WriteRecord(gsf::kHeaderRecord);
}

void GsfWriter::WriteComment(std::int64_t time_ns, std::string_view text) {
  AppendTime(record_, time_ns);
  AppendI32(record_, static_cast<std::int64_t>(text.size()));
  AppendText(record_, text);
  WriteRecord(gsf::kCommentRecord);
}

void GsfWriter::WriteHistory(std::int64_t time_ns, std::string_view machine, std::string_view user,
                             std::string_view command, std::string_view comment) {
  AppendTime(record_, time_ns);
  for (const std::string_view text : {machine, user, command, comment}) {
    AppendShortText(record_, text);
  }
  WriteRecord(gsf::kHistoryRecord);
}

void GsfWriter::WritePing(const GsfPing& ping) {
  AppendPingHeader(ping);
  struct Array {
    std::uint32_t id;
    const GsfArrayFormat& format;
    std::span<const float> values;
  };
  const std::array<Array, 5> arrays{{
      {gsf::kDepth, format_.depth, ping.depth_m},
      {gsf::kAcross, format_.across, ping.across_m},
      {gsf::kAlong, format_.along, ping.along_m},
      {gsf::kVerticalError, format_.vertical_error, ping.vertical_error_m},
      {gsf::kHorizontalError, format_.horizontal_error, ping.horizontal_error_m},
  }};
  formats_.clear();
  for (const Array& array : arrays) {
    if (!array.values.empty()) formats_[array.id] = Chosen(array.id, array.format, array.values);
  }
  if (format_.repeat_scale_factors || !(formats_ == told_formats_)) AppendScaleFactors();
  for (const Array& array : arrays) {
    if (!array.values.empty()) AppendArray(array.id, array.values);
  }
  if (!ping.beam_flags.empty()) {
    AppendI32(record_, static_cast<std::int64_t>(gsf::kBeamFlags << 24U | ping.beam_flags.size()));
    const auto flags = std::as_bytes(ping.beam_flags);
    record_.insert(record_.end(), flags.begin(), flags.end());
  }
  WriteRecord(gsf::kPingRecord);
  AddToSummary(ping);
}

void GsfWriter::Close() {
  WriteSummary();
  errno = 0;
  file_.close();
  if (!file_) FailToWrite();
}

void GsfWriter::AppendPingHeader(const GsfPing& ping) {
  if (ping.beams > 32767) Fail("cannot hold a ping of " + std::to_string(ping.beams) + " beams");
  AppendTime(record_, ping.time_ns);
  AppendI32(record_, Degrees1e7(ping.longitude_deg));
  AppendI32(record_, Degrees1e7(ping.latitude_deg));
  AppendI16(record_, static_cast<std::int64_t>(ping.beams));
  AppendI16(record_, static_cast<std::int64_t>(ping.beams / 2));
  AppendI16(record_, ping.unusable ? 1 : 0);
  AppendI16(record_, 0);  // reserved
  AppendI16(record_, 0);  // tide corrector
  AppendI32(record_, 0);  // depth corrector
  AppendI16(record_, std::llround(ping.heading_deg * 100.0));
  AppendI16(record_, 0);  // pitch
  AppendI16(record_, 0);  // roll
  AppendI16(record_, 0);  // heave
  AppendI16(record_, std::llround(ping.course_deg * 100.0));
  AppendI16(record_, std::llround(ping.speed_knots * 100.0));
  if (!gsf::HasLongPingHeader(format_.major, format_.minor)) return;
  AppendI32(record_, 0);  // height
  AppendI32(record_, 0);  // separation
  AppendI32(record_, 0);  // GPS tide corrector
  AppendI16(record_, 0);  // spare
}

void GsfWriter::AppendScaleFactors() {
  constexpr std::size_t kEntryBytes = 12;
  AppendI32(record_, static_cast<std::int64_t>(gsf::kScaleFactors << 24U |
                                               (4 + kEntryBytes * formats_.size())));
  AppendI32(record_, static_cast<std::int64_t>(formats_.size()));
  for (const auto& [id, format] : formats_) {
    AppendI32(record_, static_cast<std::int64_t>(id << 24U | WidthFlag(format.width) << 16U));
    AppendI32(record_, format.multiplier);
    AppendI32(record_, format.offset);
  }
  told_formats_ = formats_;
}

void GsfWriter::AppendArray(std::uint32_t id, std::span<const float> values) {
  const GsfArrayFormat& format = formats_.at(id);
  if (format.width != 1 && format.width != 2 && format.width != 4) {
    Fail("cannot hold elements of " + std::to_string(format.width) + " bytes");
  }
  const Range range = RangeOf(id, format.width);
  AppendI32(record_, static_cast<std::int64_t>(id << 24U | values.size() * format.width));
  for (const float value : values) {
    const double stored = Stored(value, format);
    if (!(stored >= range.least && stored <= range.greatest)) {
      Fail("cannot hold the value " + std::to_string(value) + " m in subrecord " +
           std::to_string(id) + " of " + std::to_string(format.width) + " bytes in steps of 1/" +
           std::to_string(format.multiplier) + " m");
    }
    const auto integer = static_cast<std::int64_t>(stored);
    if (format.width == 4) {
      AppendI32(record_, integer);
    } else if (format.width == 2) {
      AppendI16(record_, integer);
    } else {
      record_.push_back(static_cast<std::byte>(integer));
    }
  }
}

void GsfWriter::AddToSummary(const GsfPing& ping) {
  if (pings_++ == 0) first_time_ns_ = ping.time_ns;
  last_time_ns_ = ping.time_ns;
  longitude_deg_.Add(ping.longitude_deg);
  latitude_deg_.Add(ping.latitude_deg);
  for (const float depth_m : ping.depth_m) depth_m_.Add(depth_m);
}

void GsfWriter::WriteSummary() {
  if (pings_ == 0) return;
  const auto centimetres = [](double metres) {
    return std::isfinite(metres) ? std::llround(metres * 100.0) : 0;
  };
  AppendTime(record_, first_time_ns_);
  AppendTime(record_, last_time_ns_);
  AppendI32(record_, Degrees1e7(latitude_deg_.least));
  AppendI32(record_, Degrees1e7(longitude_deg_.least));
  AppendI32(record_, Degrees1e7(latitude_deg_.greatest));
  AppendI32(record_, Degrees1e7(longitude_deg_.greatest));
  AppendI32(record_, centimetres(depth_m_.least));
  AppendI32(record_, centimetres(depth_m_.greatest));
  WriteRecord(gsf::kSummaryRecord);
}

void GsfWriter::WriteRecord(std::uint32_t type) {
  record_.resize((record_.size() + 3) / 4 * 4);
  Bytes words;
  AppendI32(words, static_cast<std::int64_t>(record_.size()));
  AppendI32(words, format_.checksums ? type | gsf::kChecksumBit : type);
  if (format_.checksums) AppendI32(words, gsf::SumOfBytes(record_));
  errno = 0;
  file_.write(reinterpret_cast<const char*>(words.data()),
              static_cast<std::streamsize>(words.size()));
  file_.write(reinterpret_cast<const char*>(record_.data()),
              static_cast<std::streamsize>(record_.size()));
  record_.clear();
  if (!file_) FailToWrite();
}

void GsfWriter::FailToWrite() const {
  const int error = errno;
  const std::string reason =
      error != 0 ? ": " + std::generic_category().message(error) : std::string();
  throw LineError("\"" + path_ + "\" cannot be written" + reason);
}

void GsfWriter::Fail(const std::string& reason) const {
  throw LineError("\"" + path_ + "\" " + reason);
}

}  // namespace quarro::survey
