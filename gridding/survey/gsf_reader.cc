// Survey lines in the Generic Sensor Format, versions 2 and 3.
#include "gridding/survey/gsf_reader.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <system_error>

#include "gridding/survey/gsf_format.h"

namespace quarro::survey {
namespace {

constexpr std::size_t kRecordWords = 12;           // size, identifier, checksum
constexpr std::uint32_t kHeaderText = 12;          // "GSF-v03.06" and zeros
constexpr std::uint32_t kLargestPing = 1U << 26U;  // bytes, far beyond what any sonar writes

struct Version {
  int major = 0;
  int minor = 0;
};

// Reads "GSF-v03.06"; major 0 when it is something else.
Version ParseVersion(std::span<const std::byte> data) {
  constexpr std::string_view kMark = "GSF-v";
  std::string_view text(reinterpret_cast<const char*>(data.data()), data.size());
  text = text.substr(0, text.find('\0'));
  if (text.substr(0, kMark.size()) != kMark) return {};
  text.remove_prefix(kMark.size());
  Version version;
  const char* end = text.data() + text.size();
  const auto major = std::from_chars(text.data(), end, version.major);
  if (major.ec != std::errc() || major.ptr == end || *major.ptr != '.') return {};
  const auto minor = std::from_chars(major.ptr + 1, end, version.minor);
  return minor.ec == std::errc() ? version : Version{};
}

}  // namespace

GsfReader::GsfReader(const std::string& path) : window_(path) {
  const auto start = window_.Get(0, kRecordWords + kHeaderText);
  const bool is_header = start.size() >= 8 && (gsf::LoadU32(start.data() + 4) &
                                               gsf::kTypeAndRegistryMask) == gsf::kHeaderRecord;
  Record record;
  if (!is_header || !NextRecord(record)) {
    throw LineError("\"" + path +
                    "\" is not a GSF file: it does not begin with a GSF header record");
  }
  TakeHeader(record);
  if (ping_header_bytes_ == 0) throw LineError("\"" + path + "\": " + Remark());
}

bool GsfReader::Next(PingChunk& chunk, BeamAccount& account) {
  chunk.Clear();
  Record record;
  while (chunk.beams() < kBeamsPerChunk && chunk.pings.size() < kPingsPerChunk &&
         NextRecord(record)) {
    if (record.type == gsf::kPingRecord) TakePing(record, chunk);
    if (record.type == gsf::kHeaderRecord) TakeHeader(record);
  }
  account.pings += chunk.pings.size();
  account.read += chunk.beams();
  for (const Ping& ping : chunk.pings) {
    account.soundings_per_ping = std::max(account.soundings_per_ping, ping.beam_count);
  }
  any_ping_ = any_ping_ || !chunk.pings.empty();
  if (!any_ping_) {
    throw LineError("\"" + window_.file().path() + "\" holds no whole ping" +
                    (problems_ > 0 ? ": " + Remark() : std::string()));
  }
  return !chunk.pings.empty();
}

std::string GsfReader::Remark() const {
  if (problems_ < 2) return first_problem_;
  return first_problem_ + " (and " + std::to_string(problems_ - 1) + " more)";
}

bool GsfReader::NextRecord(Record& record) {
  const std::uint64_t end = window_.file().size();
  if (position_ >= end) return false;
  const auto stop = [&](const std::string& problem) {
    Note(position_, problem);
    position_ = end;
    return false;
  };
  const auto words = window_.Get(position_, kRecordWords);
  if (words.size() < 8) return stop("the file ends within a record's first words");
  record.offset = position_;
  record.size = gsf::LoadU32(words.data());
  const std::uint32_t identifier = gsf::LoadU32(words.data() + 4);
  if (record.size == 0 && identifier == 0) return stop("zeros stand in place of records");
  record.type = identifier & gsf::kTypeAndRegistryMask;
  record.has_checksum = (identifier & gsf::kChecksumBit) != 0;
  if (record.has_checksum) {
    if (words.size() < kRecordWords) return stop("the file ends within a record's first words");
    record.checksum = gsf::LoadU32(words.data() + 8);
  }
  record.data = position_ + (record.has_checksum ? 12 : 8);
  if (record.size > end - record.data) {
    return stop("a record of " + std::to_string(record.size) +
                " bytes runs past the end of the file");
  }
  position_ = record.data + record.size;
  return true;
}

void GsfReader::TakeHeader(const Record& record) {
  const Version version =
      ParseVersion(window_.Get(record.data, std::min(record.size, kHeaderText)));
  const bool known = version.major == 2 || version.major == 3;
  ping_header_bytes_ = !known ? 0
                       : gsf::HasLongPingHeader(version.major, version.minor)
                           ? gsf::kLongPingHeaderBytes
                           : gsf::kShortPingHeaderBytes;
  if (known) return;
  Note(record.offset, "a header that names no GSF version from 2 to 3.x");
  position_ = window_.file().size();
}

void GsfReader::TakePing(const Record& record, PingChunk& chunk) {
  std::string problem;
  const auto data = Data(record);
  const bool taken = !data.empty() && decoder_.Decode(data, ping_header_bytes_, chunk, problem);
  if (!problem.empty()) Note(record.offset, problem);
  if (!taken) decoder_.ForgetInherited();
}

std::span<const std::byte> GsfReader::Data(const Record& record) {
  if (record.size == 0 || record.size > kLargestPing) {
    Note(record.offset, "a ping of " + std::to_string(record.size) + " bytes");
    return {};
  }
  const auto data = window_.Get(record.data, record.size);
  if (data.size() < record.size) {
    Note(record.offset, "the file shrank while it was read");
    position_ = window_.file().size();
    return {};
  }
  if (record.has_checksum && gsf::SumOfBytes(data) != record.checksum) {
    Note(record.offset, "a ping does not match its checksum");
    return {};
  }
  return data;
}

void GsfReader::Note(std::uint64_t offset, const std::string& problem) {
  if (problems_++ == 0) first_problem_ = "at byte " + std::to_string(offset) + ": " + problem;
}

}  // namespace quarro::survey
