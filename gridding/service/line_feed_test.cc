// A line on its way from its file: which zone it is placed in, and that what came is what was
// digested.
#include "gridding/service/line_feed.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>

#include <gtest/gtest.h>

#include "engine/exceptions.h"
#include "gridding/local/engine_test_support.h"

namespace quarro::service {
namespace {

constexpr int kChunks = 12;  // far more than are read ahead
constexpr std::uint64_t kBeams = kChunks * survey::LineReader::kBeamsPerChunk;

class LineFeedTest : public ::testing::Test {
 protected:
  // A text line of one sounding and kBeams - 1 beams that cannot be read, which are fast to make.
  std::string WriteLongLine() {
    std::string text = "1 2 3\n";
    for (std::uint64_t i = 1; i < kBeams; ++i) text += "x\n";
    const std::string path = directory_ / "long.xyz";
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  // What is told of a line whose file is changed once it was digested. The feed still has most of
  // the file before it then: it waits for chunks to be taken.
  std::string ReasonAfter(const std::function<void(const std::string& path)>& change) {
    const std::string path = WriteLongLine();
    LineFeed feed(path, lattice_, 0, {});
    EXPECT_EQ(feed.Identity(not_cancelled_).bytes, std::filesystem::file_size(path));
    change(path);
    core::BinnedChunk chunk;
    return testing::ReasonOf([&] {
      while (feed.Next(chunk)) continue;
    });
  }
  std::string Changed() {
    return "\"" + (directory_ / "long.xyz") +
           "\" was changed while it was read: submit it again when it is complete";
  }

  testing::FreshDirectory directory_;
  core::Lattice lattice_{10.0};
  CancelFlag not_cancelled_;
};

TEST_F(LineFeedTest, AFileThatStaysAsItIsIsReadToItsEnd) {
  const std::string path = WriteLongLine();
  LineFeed feed(path, lattice_, 0, {});
  core::BinnedChunk chunk;
  std::uint64_t soundings = 0;
  while (feed.Next(chunk)) soundings += chunk.soundings.size();
  EXPECT_EQ(soundings, 1U);
  EXPECT_EQ(feed.summary().account.read, kBeams);
  EXPECT_EQ(feed.summary().utm_zone, 0);
}

TEST_F(LineFeedTest, AFileThatGrowsWhileItIsReadFails) {
  EXPECT_EQ(ReasonAfter([](const std::string& path) {
              std::ofstream(path, std::ios::binary | std::ios::app) << "4 5 6\n";
            }),
            Changed());
}

TEST_F(LineFeedTest, AFileThatIsCutShortWhileItIsReadFails) {
  EXPECT_EQ(ReasonAfter([](const std::string& path) {
              std::filesystem::resize_file(path, std::filesystem::file_size(path) - 2);
            }),
            Changed());
}

TEST_F(LineFeedTest, AFileThatIsWrittenOverWhileItIsReadFails) {
  EXPECT_EQ(ReasonAfter([](const std::string& path) {
              const auto before = std::filesystem::last_write_time(path);
              std::fstream(path, std::ios::binary | std::ios::in | std::ios::out) << "7 8 9\n";
              // Two writes within one tick of the system's clock bear the same time.
              std::filesystem::last_write_time(path, before + std::chrono::milliseconds(20));
            }),
            Changed());
}

TEST_F(LineFeedTest, AFileThatIsRemovedOnceItIsReadFromIsReadToItsEnd) {
  const std::string path = WriteLongLine();
  LineFeed feed(path, lattice_, 0, {});
  core::BinnedChunk chunk;
  ASSERT_TRUE(feed.Next(chunk));
  std::filesystem::remove(path);
  while (feed.Next(chunk)) continue;
  EXPECT_EQ(feed.summary().account.read, kBeams);
}

TEST_F(LineFeedTest, ALineWithoutASoundingHasNoZone) {
  const std::string path = directory_ / "a.llz";
  std::ofstream(path) << "0 0 0\n3 56 0\n200 0 20\n-70 42 0\n";
  LineFeed feed(path, lattice_, 0, {});
  core::BinnedChunk chunk;
  while (feed.Next(chunk)) continue;
  EXPECT_EQ(feed.summary().utm_zone, 0);
  EXPECT_EQ(feed.summary().account.Refused(), 4U);
  const auto refused = [&](survey::Refusal reason) {
    return feed.summary().account.refused[static_cast<std::size_t>(reason)];
  };
  EXPECT_EQ(refused(survey::Refusal::kNotFinite), 3U);
  EXPECT_EQ(refused(survey::Refusal::kPosition), 1U);
}

TEST_F(LineFeedTest, TheZoneMayComeAfterManyChunks) {
  const std::string path = directory_ / "a.llz";
  {
    std::ofstream out(path);
    out << "0 0 0\n";
    for (std::uint64_t i = 0; i < 2 * survey::LineReader::kBeamsPerChunk; ++i) out << "1 1 0\n";
    out << "-70 42 20\n";
  }
  LineFeed feed(path, lattice_, 0, {});
  core::BinnedChunk chunk;
  while (feed.Next(chunk)) continue;
  EXPECT_EQ(feed.summary().utm_zone, 19);
  EXPECT_EQ(feed.summary().account.offered, 1U);
}

}  // namespace
}  // namespace quarro::service
