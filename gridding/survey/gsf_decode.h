// The inner loops of the GSF reader: whole arrays of big-endian integers to metres.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace quarro::survey::gsf {

// How an array's integers become values: stored / multiplier - offset.
struct Scale {
  std::int32_t multiplier = 0;  // 0: none known, or bad data
  std::int32_t offset = 0;
};

// Bytes an element of an array of `beams` > 0 elements that takes `bytes`: 1, 2 or 4; 0 when the
// array cannot be one of so many beams.
std::size_t ElementWidth(std::size_t bytes, std::size_t beams);

// Decodes bytes.size() / width elements to `out`, which has room for them. `width` is 1, 2 or 4,
// the multiplier not 0. The multiplication by the reciprocal is done in double precision, and so
// rounds to the same single-precision value as the division, or its neighbour.
void DecodeUnsigned(std::span<const std::byte> bytes, std::size_t width, Scale scale, float* out);
void DecodeSigned(std::span<const std::byte> bytes, std::size_t width, Scale scale, float* out);

// The sum of the bytes modulo 2^32, a record's checksum.
std::uint32_t SumOfBytes(std::span<const std::byte> bytes);

}  // namespace quarro::survey::gsf
