// Digests tell files apart and are the same on every machine.
#include "gridding/survey/file_digest.h"

#include <stdexcept>

#include <gtest/gtest.h>

#include "gridding/survey/test_files.h"

namespace quarro::survey {
namespace {

std::string Hexadecimal(const std::array<std::byte, 16>& digest) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::byte byte : digest) {
    text += kDigits[std::to_integer<int>(byte) >> 4];
    text += kDigits[std::to_integer<int>(byte) & 15];
  }
  return text;
}

TEST(FileDigest, IsThatOfTheBytesInCanonicalOrder) {
  const ScratchDirectory scratch;
  std::uint64_t bytes = 0;
  EXPECT_EQ(Hexadecimal(DigestOfFile(scratch.Write("a", "abc"), bytes)),
            "06b05ab6733a618578af5f94892f3950");
  EXPECT_EQ(bytes, 3U);
}

TEST(FileDigest, LargeFilesDifferInOneByte) {
  const ScratchDirectory scratch;
  std::string text(3'500'001, 'x');
  std::uint64_t bytes = 0;
  const auto first = DigestOfFile(scratch.Write("a", text), bytes);
  EXPECT_EQ(bytes, 3'500'001U);
  EXPECT_EQ(DigestOfFile(scratch.Write("b", text), bytes), first);
  text[2'000'000] = 'y';
  EXPECT_NE(DigestOfFile(scratch.Write("c", text), bytes), first);
}

TEST(FileDigest, EndsEarlyByWhatIsThrownBetween) {
  const ScratchDirectory scratch;
  const std::string path = scratch.Write("a", std::string(10U << 20U, 'x'));
  std::uint64_t bytes = 0;
  int calls = 0;
  const auto stop = [&calls] {
    if (++calls == 3) throw std::runtime_error("enough");
  };
  EXPECT_THROW(DigestOfFile(path, bytes, stop), std::runtime_error);
  EXPECT_EQ(bytes, 2U << 20U);
}

TEST(FileDigest, AFileThatCannotBeReadIsNamed) {
  std::uint64_t bytes = 0;
  EXPECT_THROW(DigestOfFile("/nonexistent/line.gsf", bytes), LineError);
}

}  // namespace
}  // namespace quarro::survey
