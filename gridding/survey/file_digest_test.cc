// Digests tell files apart and are the same on every machine; stamps tell changed files.
#include "gridding/survey/file_digest.h"

#include <chrono>
#include <filesystem>
#include <fstream>
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
  EXPECT_EQ(Hexadecimal(DigestOfFile(FileBytes(scratch.Write("a", "abc")), bytes)),
            "06b05ab6733a618578af5f94892f3950");
  EXPECT_EQ(bytes, 3U);
}

TEST(FileDigest, LargeFilesDifferInOneByte) {
  const ScratchDirectory scratch;
  std::string text(3'500'001, 'x');
  std::uint64_t bytes = 0;
  const auto first = DigestOfFile(FileBytes(scratch.Write("a", text)), bytes);
  EXPECT_EQ(bytes, 3'500'001U);
  EXPECT_EQ(DigestOfFile(FileBytes(scratch.Write("b", text)), bytes), first);
  text[2'000'000] = 'y';
  EXPECT_NE(DigestOfFile(FileBytes(scratch.Write("c", text)), bytes), first);
}

TEST(FileDigest, EndsEarlyByWhatIsThrownBetween) {
  const ScratchDirectory scratch;
  const FileBytes file(scratch.Write("a", std::string(10U << 20U, 'x')));
  std::uint64_t bytes = 0;
  int calls = 0;
  const auto stop = [&calls] {
    if (++calls == 3) throw std::runtime_error("enough");
  };
  EXPECT_THROW(DigestOfFile(file, bytes, stop), std::runtime_error);
  EXPECT_EQ(bytes, 2U << 20U);
}

TEST(FileBytes, AFileThatCannotBeOpenedIsNamed) {
  try {
    const FileBytes file("/nonexistent/line.gsf");
    FAIL() << "a missing file was opened";
  } catch (const LineError& error) {
    EXPECT_NE(error.who().find("\"/nonexistent/line.gsf\""), std::string::npos) << error.who();
  }
}

TEST(FileBytes, TheStampTellsChangedBytesFromUnchanged) {
  const ScratchDirectory scratch;
  const std::string path = scratch.Write("a", "abc");
  const FileBytes file(path);
  EXPECT_EQ(file.StampNow(), file.stamp());
  EXPECT_EQ(FileBytes(path).stamp(), file.stamp());

  std::ofstream(path, std::ios::binary | std::ios::app) << 'd';
  EXPECT_EQ(file.StampNow().size, 4U);
  EXPECT_NE(file.StampNow(), file.stamp());

  // As many bytes at another time.
  const FileBytes longer(path);
  const auto time = std::filesystem::last_write_time(path);
  std::filesystem::last_write_time(path, time + std::chrono::microseconds(1));
  EXPECT_NE(longer.StampNow(), longer.stamp());
}

TEST(FileBytes, AFileInTheSamePlaceIsNotTheSameFile) {
  const ScratchDirectory scratch;
  const std::string path = scratch.Write("a", "abc");
  const FileBytes file(path);
  const std::string other = scratch.Write("b", "abd");
  std::filesystem::last_write_time(other, std::filesystem::last_write_time(path));
  std::filesystem::rename(other, path);
  EXPECT_EQ(file.StampNow(), file.stamp());
  const FileStamp replaced = FileBytes(path).stamp();
  EXPECT_NE(replaced, file.stamp());
  EXPECT_EQ(replaced.size, file.stamp().size);
  EXPECT_EQ(replaced.modified_ns, file.stamp().modified_ns);
}

}  // namespace
}  // namespace quarro::survey
