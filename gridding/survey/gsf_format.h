// Names and byte order of the Generic Sensor Format, for its reader and its writer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace quarro::survey::gsf {

enum RecordType : std::uint32_t {
  kHeaderRecord = 1,
  kPingRecord = 2,
  kCommentRecord = 6,
  kHistoryRecord = 7,
  kSummaryRecord = 9,
};

// Words of a record's identifier.
inline constexpr std::uint32_t kChecksumBit = 0x80000000U;
inline constexpr std::uint32_t kTypeAndRegistryMask = 0x003FFFFFU;

enum SubrecordId : std::uint32_t {
  kDepth = 1,
  kAcross = 2,
  kAlong = 3,
  kDepthErrorOld = 11,
  kAcrossErrorOld = 12,
  kAlongErrorOld = 13,
  kBeamFlags = 16,
  kVerticalError = 19,
  kHorizontalError = 20,
  kScaleFactors = 100,
};

// Of a ping's data before its subrecords: without the ellipsoid heights until 3.00, with them
// after.
inline constexpr std::size_t kShortPingHeaderBytes = 42;
inline constexpr std::size_t kLongPingHeaderBytes = 56;
constexpr bool HasLongPingHeader(int major, int minor) {
  return major > 3 || (major == 3 && minor >= 1);
}

// One sigma of the errors that a file gives at 95 %: of a depth, and of a position along one axis
// where the file gives the radius of a circle.
inline constexpr double kSigmasOfVertical95 = 1.96;
inline constexpr double kSigmasOfRadial95 = 2.4477;

inline std::uint8_t Swapped(std::uint8_t value) { return value; }
inline std::uint16_t Swapped(std::uint16_t value) { return __builtin_bswap16(value); }
inline std::uint32_t Swapped(std::uint32_t value) { return __builtin_bswap32(value); }

template <typename Word>
Word FromBigEndian(Word value) {
  return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? Swapped(value) : value;
}

// `at` points to at least as many bytes as the word has.
template <typename Word>
Word Load(const std::byte* at) {
  Word value;
  std::memcpy(&value, at, sizeof value);
  return FromBigEndian(value);
}
inline std::uint16_t LoadU16(const std::byte* at) { return Load<std::uint16_t>(at); }
inline std::uint32_t LoadU32(const std::byte* at) { return Load<std::uint32_t>(at); }
inline std::int16_t LoadI16(const std::byte* at) { return static_cast<std::int16_t>(LoadU16(at)); }
inline std::int32_t LoadI32(const std::byte* at) { return static_cast<std::int32_t>(LoadU32(at)); }

}  // namespace quarro::survey::gsf
