// The vector loops against a decoder that does one element at a time and divides.
#include "gridding/survey/gsf_decode.h"

#include <cmath>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace quarro::survey::gsf {
namespace {

double Simple(const std::vector<std::byte>& bytes, std::size_t at, std::size_t width, bool sign,
              Scale scale) {
  std::int64_t stored = 0;
  for (std::size_t i = 0; i < width; ++i) {
    stored = stored * 256 + std::to_integer<int>(bytes[at * width + i]);
  }
  const std::int64_t half = std::int64_t{1} << (8 * width - 1);
  if (sign && stored >= half) stored -= 2 * half;
  return static_cast<double>(stored) / scale.multiplier - scale.offset;
}

TEST(GsfDecode, EveryWidthAgreesWithTheSimpleDecoder) {
  std::mt19937 random(20240607);
  for (const std::size_t width : {1U, 2U, 4U}) {
    for (const Scale scale : {Scale{1000, -1460}, Scale{100, 0}, Scale{7, 3}, Scale{-10, 0}}) {
      // Odd counts, so that what is left behind the vectors is decoded too.
      for (const std::size_t count : {1U, 3U, 432U, 1001U}) {
        std::vector<std::byte> bytes(count * width);
        for (auto& byte : bytes) byte = static_cast<std::byte>(random());
        std::vector<float> of_unsigned(count);
        std::vector<float> of_signed(count);
        DecodeUnsigned(bytes, width, scale, of_unsigned.data());
        DecodeSigned(bytes, width, scale, of_signed.data());
        for (std::size_t i = 0; i < count; ++i) {
          const double plain = Simple(bytes, i, width, false, scale);
          const double with_sign = Simple(bytes, i, width, true, scale);
          // One step of single precision, on top of which multiplying adds nothing to be seen.
          EXPECT_NEAR(of_unsigned[i], plain, 1e-9 + std::abs(plain) * 0x1p-23);
          EXPECT_NEAR(of_signed[i], with_sign, 1e-9 + std::abs(with_sign) * 0x1p-23);
        }
      }
    }
  }
}

TEST(GsfDecode, ReciprocalStaysWithinHalfAStepAtOceanDepths) {
  // 2 km of water stored in millimetres above an offset, as deep-water sonars do.
  const Scale scale{1000, -1460};
  for (std::uint32_t stored = 0; stored < 900000; stored += 7) {
    const std::vector<std::byte> bytes = {
        static_cast<std::byte>(stored >> 24U), static_cast<std::byte>(stored >> 16U),
        static_cast<std::byte>(stored >> 8U), static_cast<std::byte>(stored)};
    float depth_m = 0.0F;
    DecodeUnsigned(bytes, 4, scale, &depth_m);
    ASSERT_NEAR(depth_m, stored / 1000.0 + 1460.0, 0.0005);
  }
}

TEST(GsfDecode, ElementWidthIsSizeByBeamsAndNothingElse) {
  EXPECT_EQ(ElementWidth(432, 432), 1U);
  EXPECT_EQ(ElementWidth(864, 432), 2U);
  EXPECT_EQ(ElementWidth(1728, 432), 4U);
  EXPECT_EQ(ElementWidth(1296, 432), 0U);
  EXPECT_EQ(ElementWidth(865, 432), 0U);
  EXPECT_EQ(ElementWidth(0, 432), 0U);
}

TEST(GsfDecode, SumOfBytesTakesBytesAsUnsigned) {
  const std::vector<std::byte> bytes(1000, std::byte{0xFF});
  EXPECT_EQ(SumOfBytes(bytes), 255000U);
  EXPECT_EQ(SumOfBytes({}), 0U);
}

}  // namespace
}  // namespace quarro::survey::gsf
