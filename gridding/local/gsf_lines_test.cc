// Survey lines in the Generic Sensor Format through the in-process engine: flagged, cut short, and
// running out of the grid's zone.
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"
#include "gridding/survey/test_pings.h"

namespace quarro::testing {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr std::size_t kBeams = 41;
constexpr double kMetresPerDegree = 111'000.0;

// A ship that goes straight, its swath of kBeams beams 1 m apart on a flat bottom.
struct Track {
  double longitude_deg = 9.0;  // the central meridian of zone 32
  double latitude_deg = 0.01;
  double step_deg = 1.0 / kMetresPerDegree;  // eastward between pings
  std::size_t pings = 30;
  float depth_m = 25.0F;
  bool flagged = false;
};

// Adds the pings of `track` to `writer`.
void WriteTrack(survey::GsfWriter& writer, const Track& track) {
  survey::PingArrays swath = survey::FlatSwath(kBeams, track.depth_m);
  swath.flags.assign(kBeams, track.flagged ? 1 : 0);
  for (std::size_t i = 0; i < track.pings; ++i) {
    survey::GsfPing ping = swath.Ping();
    ping.time_ns = 1'541'193'704'000'000'000 + static_cast<std::int64_t>(i) * 1'000'000'000;
    ping.longitude_deg = track.longitude_deg + static_cast<double>(i) * track.step_deg;
    ping.latitude_deg = track.latitude_deg;
    ping.heading_deg = 90.0;
    writer.WritePing(ping);
  }
}

class GsfLines : public ::testing::Test {
 protected:
  void SetUp() override {
    Attach(client_);
    Construct(client_, "g");
  }
  std::string Write(const std::string& name, const std::vector<Track>& tracks) {
    const std::string path = directory_ / name;
    survey::GsfWriter writer(path);
    for (const Track& track : tracks) WriteTrack(writer, track);
    writer.Close();
    return path;
  }
  // Soundings in the cells of the grid within `box`.
  std::uint64_t SoundingsIn(const SGBoundingBox& box) {
    const auto records = Resolution(client_, box);
    std::uint64_t sum = 0;
    for (std::uint32_t i = 0; i < records->grid.rows * records->grid.columns; ++i) {
      sum += records->grid.cells[i].soundings;
    }
    return sum;
  }

  FreshDirectory directory_;
  SGDebugClient client_{ParametersFor(directory_.path())};
  EngineLog log_;
};

TEST_F(GsfLines, ALineSettlesTheZoneAndIsGriddedWhereTheShipWas) {
  const auto line = Add(client_, Write("a.gsf", {{}}));
  EXPECT_EQ(line->failed, 0U);
  EXPECT_EQ(line->used, 30 * kBeams);
  EXPECT_THAT(Query(client_, 1), Contains("projection: set projection utm 32"));
  const SGBoundingBox bounds = GridBounds(client_);
  EXPECT_EQ(bounds.west(), 500'000.0);
  EXPECT_EQ(bounds.east(), 500'030.0);
  const auto depth = Depth(client_, bounds);
  EXPECT_NEAR(depth->grid.At(1, 1).estimate.depth_m, 25.0, 0.01);
}

TEST_F(GsfLines, ALineWithEveryBeamFlaggedSucceedsAndContributesNothing) {
  Add(client_, Write("good.gsf", {{}}));
  const std::string before = AllResults(client_);
  Track flagged;
  flagged.flagged = true;
  flagged.depth_m = 3.0F;
  const auto line = Add(client_, Write("flagged.gsf", {flagged}), 7);
  EXPECT_EQ(line->failed, 0U);
  EXPECT_EQ(line->line_id, 7U);
  EXPECT_EQ(line->pings, 30U);
  EXPECT_EQ(line->soundings_per_ping, kBeams);
  EXPECT_EQ(line->rejected_by_flag, 30 * kBeams);
  EXPECT_EQ(line->offered, 0U);
  EXPECT_EQ(line->used, 0U);
  EXPECT_EQ(AllResults(client_), before);
  EXPECT_THAT(Query(client_, 1), Contains("lines: 2"));
}

TEST_F(GsfLines, AGridOfFlaggedBeamsAloneIsEmpty) {
  Track flagged;
  flagged.flagged = true;
  EXPECT_EQ(Add(client_, Write("flagged.gsf", {flagged}))->failed, 0U);
  EXPECT_EQ(GridBounds(client_), SGBoundingBox());
  EXPECT_THAT(Query(client_, 1), Contains("cells: none with data"));
}

TEST_F(GsfLines, ATruncatedLineContributesWhatIsWholeAndTheLogSaysWhereItEnds) {
  const std::string path = Write("cut.gsf", {{}});
  std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
  const auto line = Add(client_, path);
  EXPECT_EQ(line->failed, 0U);
  EXPECT_GT(line->pings, 0U);
  EXPECT_LT(line->pings, 30U);
  EXPECT_EQ(line->used, line->pings * kBeams);
  const std::string where = "4 line 0 \"" + path + "\": at byte ";
  ASSERT_THAT(log_.Text(), HasSubstr(where));
  EXPECT_THAT(log_.Text(), HasSubstr(" bytes runs past the end of the file"));
  const std::string cut = AllResults(client_);

  // What lies before the byte that the log names is a whole file of the same soundings.
  const std::string text = log_.Text();
  const std::uint64_t end = std::stoull(text.substr(text.find(where) + where.size()));
  const std::string whole = directory_ / "whole.gsf";
  std::filesystem::copy_file(path, whole);
  std::filesystem::resize_file(whole, end);
  Construct(client_, "whole");
  EXPECT_EQ(Add(client_, whole)->pings, line->pings);
  EXPECT_THAT(log_.Text(), Not(HasSubstr("3 line \"" + whole)));
  EXPECT_EQ(AllResults(client_), cut);
}

TEST_F(GsfLines, ALineIntoTheNextZoneIsGriddedInTheGridsOwn) {
  // Zone 32 ends at 12 degrees east.
  Track out;
  out.longitude_deg = 12.0 - 15.0 / kMetresPerDegree;
  const auto line = Add(client_, Write("out.gsf", {out}));
  EXPECT_EQ(line->used, 30 * kBeams);
  EXPECT_THAT(Query(client_, 1), Contains("projection: set projection utm 32"));
  const SGBoundingBox bounds = GridBounds(client_);
  EXPECT_NEAR(bounds.west(), 833'960.0, 60.0);
  EXPECT_NEAR(bounds.east() - bounds.west(), 30.0, 10.0);
  EXPECT_EQ(SoundingsIn(bounds), 30 * kBeams);

  // A line that lies in the next zone altogether, too.
  Track beyond;
  beyond.longitude_deg = 12.5;
  EXPECT_EQ(Add(client_, Write("beyond.gsf", {beyond}))->used, 30 * kBeams);
  EXPECT_THAT(Query(client_, 1), Contains("projection: set projection utm 32"));
  EXPECT_NEAR(GridBounds(client_).east(), 889'700.0, 300.0);
}

TEST_F(GsfLines, BeamsBeyondNineDegreesFromTheMeridianAreCountedAsRefused) {
  Track near;
  Track far;
  far.longitude_deg = 18.5;
  far.pings = 4;
  const auto line = Add(client_, Write("a.gsf", {near, far}), 3);
  EXPECT_EQ(line->failed, 0U);
  EXPECT_EQ(line->pings, 34U);
  EXPECT_EQ(line->rejected_by_flag, 0U);
  EXPECT_EQ(line->offered, 30 * kBeams);
  EXPECT_EQ(line->used, 30 * kBeams);
  EXPECT_THAT(log_.Text(),
              HasSubstr("0 flagged, " + std::to_string(4 * kBeams) + " refused (" +
                        std::to_string(4 * kBeams) + " beyond the grid's projection zone)"));
  EXPECT_EQ(GridBounds(client_).east(), 500'030.0);
}

}  // namespace
}  // namespace quarro::testing
