// The inner loops of the GSF reader, written so that the compiler turns them into vector code.
#include "gridding/survey/gsf_decode.h"

#include <type_traits>

#include "gridding/survey/gsf_format.h"

namespace quarro::survey::gsf {
namespace {

template <typename Stored>
void DecodeAs(std::span<const std::byte> bytes, Scale scale, float* out) {
  const double reciprocal = 1.0 / scale.multiplier;
  const double offset = scale.offset;
  const std::byte* from = bytes.data();
  const std::size_t count = bytes.size() / sizeof(Stored);
  for (std::size_t i = 0; i < count; ++i) {
    const auto stored =
        static_cast<Stored>(Load<std::make_unsigned_t<Stored>>(from + i * sizeof(Stored)));
    out[i] = static_cast<float>(stored * reciprocal - offset);
  }
}

}  // namespace

std::size_t ElementWidth(std::size_t bytes, std::size_t beams) {
  for (const std::size_t width : {1U, 2U, 4U}) {
    if (bytes == width * beams) return width;
  }
  return 0;
}

void DecodeUnsigned(std::span<const std::byte> bytes, std::size_t width, Scale scale, float* out) {
  if (width == 4) return DecodeAs<std::uint32_t>(bytes, scale, out);
  if (width == 2) return DecodeAs<std::uint16_t>(bytes, scale, out);
  DecodeAs<std::uint8_t>(bytes, scale, out);
}

void DecodeSigned(std::span<const std::byte> bytes, std::size_t width, Scale scale, float* out) {
  if (width == 4) return DecodeAs<std::int32_t>(bytes, scale, out);
  if (width == 2) return DecodeAs<std::int16_t>(bytes, scale, out);
  DecodeAs<std::int8_t>(bytes, scale, out);
}

std::uint32_t SumOfBytes(std::span<const std::byte> bytes) {
  std::uint32_t sum = 0;
  for (const std::byte byte : bytes) sum += static_cast<std::uint32_t>(byte);
  return sum;
}

}  // namespace quarro::survey::gsf
