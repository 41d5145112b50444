// Lines into a grid: which of them settles its zone, and that one that fails leaves no trace.
#include "gridding/service/line_ingest.h"

#include <filesystem>
#include <fstream>
#include <vector>

#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"
#include "gridding/survey/test_pings.h"

namespace quarro::service {
namespace {

constexpr std::size_t kBeams = 21;
constexpr std::size_t kGoodPings = 10;

// A ping of kBeams beams 1 m apart, unless its field says otherwise.
struct Shot {
  double longitude_deg = -70.0;
  double latitude_deg = 42.0;
  double heading_deg = 90.0;
  std::size_t beams = kBeams;
  bool ping_flag = false;
  std::uint8_t beam_flag = 0;
  float depth_m = 25.0F;
  float horizontal_error_m = 0.5F;
};

// A ping of a ship without a fix.
Shot Nowhere() {
  Shot shot;
  shot.longitude_deg = 0.0;
  shot.latitude_deg = 0.0;
  return shot;
}

struct Way {
  const char* name;
  Shot shot;
};
// The ways in which a ping at 0, 0 gives no sounding.
std::vector<Way> WaysToGiveNone() {
  std::vector<Way> ways = {{"no beams", Nowhere()},
                           {"ping flagged", Nowhere()},
                           {"all beams flagged", Nowhere()},
                           {"heading out of range", Nowhere()},
                           {"depths 0", Nowhere()}};
  ways[0].shot.beams = 0;
  ways[1].shot.ping_flag = true;
  ways[2].shot.beam_flag = 1;
  ways[3].shot.heading_deg = 655.35;
  ways[4].shot.depth_m = 0.0F;
  return ways;
}

class LineIngest : public ::testing::Test {
 protected:
  LineIngest() {
    config_.memory_bytes = std::uint64_t{64} << 20U;
    MakeGrid("g");
  }
  void MakeGrid(const std::string& name) {
    std::string set_aside_as;
    grid_ = std::make_unique<OpenGrid>(
        store::GridStore::Create(directory_.path(), name, {10.0F, 1.0F}, set_aside_as), config_);
  }
  std::string Write(const std::string& name, const std::vector<Shot>& shots) {
    const std::string path = directory_ / name;
    survey::GsfWriter writer(path);
    for (const Shot& shot : shots) {
      survey::PingArrays swath = survey::FlatSwath(shot.beams, shot.depth_m);
      swath.horizontal_m.assign(shot.beams, shot.horizontal_error_m);
      swath.flags.assign(shot.beams, shot.beam_flag);
      survey::GsfPing ping = swath.Ping();
      ping.longitude_deg = shot.longitude_deg;
      ping.latitude_deg = shot.latitude_deg;
      ping.heading_deg = shot.heading_deg;
      ping.unusable = shot.ping_flag;
      writer.WritePing(ping);
    }
    writer.Close();
    return path;
  }
  survey::BeamAccount Ingest(const std::string& path) {
    LineFeed feed(path, grid_->lattice, ZoneForLines(*grid_, config_), config_.uncertainty);
    return IngestLine(*grid_, config_, {}, path, feed, not_cancelled_, [](int) {});
  }
  std::string StoredZone() { return grid_->store->TakeSnapshot()->Setting(kZoneSetting); }

  testing::FreshDirectory directory_;
  EngineConfig config_;
  std::unique_ptr<OpenGrid> grid_;
  CancelFlag not_cancelled_;
};

TEST_F(LineIngest, APingThatGivesNoSoundingDoesNotSettleTheZoneOfItsLine) {
  for (const Way& way : WaysToGiveNone()) {
    MakeGrid("grid " + std::string(way.name));
    std::vector<Shot> shots(kGoodPings);
    shots.insert(shots.begin(), way.shot);
    const survey::BeamAccount account = Ingest(Write("line.gsf", shots));
    EXPECT_EQ(account.used, kGoodPings * kBeams) << way.name << ": " << AccountText(account);
    EXPECT_EQ(account.refused[static_cast<std::size_t>(survey::Refusal::kZone)], 0U) << way.name;
    EXPECT_EQ(grid_->utm_zone, 19) << way.name;
    EXPECT_EQ(StoredZone(), "19") << way.name;
  }
}

TEST_F(LineIngest, ALineThatGivesNoSoundingLeavesTheZoneToTheNext) {
  const std::string good = Write("good.gsf", std::vector<Shot>(kGoodPings));
  for (const Way& way : WaysToGiveNone()) {
    MakeGrid("grid " + std::string(way.name));
    const survey::BeamAccount account =
        Ingest(Write("none.gsf", std::vector<Shot>(kGoodPings, way.shot)));
    EXPECT_EQ(account.used, 0U) << way.name;
    EXPECT_EQ(account.refused[static_cast<std::size_t>(survey::Refusal::kZone)], 0U) << way.name;
    EXPECT_EQ(grid_->utm_zone, 0) << way.name;
    EXPECT_EQ(StoredZone(), "") << way.name;
    EXPECT_EQ(Ingest(good).used, kGoodPings * kBeams) << way.name;
    EXPECT_EQ(grid_->utm_zone, 19) << way.name;
    EXPECT_EQ(StoredZone(), "19") << way.name;
  }
}

TEST_F(LineIngest, SoundingsTooUncertainForTheirCellDoNotSettleTheZone) {
  Shot uncertain = Nowhere();
  uncertain.horizontal_error_m = 60.0F;
  const survey::BeamAccount account = Ingest(Write("uncertain.gsf", {uncertain}));
  EXPECT_EQ(account.refused[static_cast<std::size_t>(survey::Refusal::kUncertain)], kBeams);
  EXPECT_EQ(StoredZone(), "");
  EXPECT_EQ(Ingest(Write("good.gsf", std::vector<Shot>(kGoodPings))).used, kGoodPings * kBeams);
  EXPECT_EQ(StoredZone(), "19");
}

TEST_F(LineIngest, AFileChangedWhileItIsReadLeavesTheGridAsItWasAndMayBeSubmittedAgain) {
  const std::string path = directory_ / "long.xyz";
  constexpr std::uint64_t kLines = 12 * survey::LineReader::kBeamsPerChunk;
  {
    std::ofstream out(path, std::ios::binary);
    out << "1 2 3\n";
    for (std::uint64_t i = 1; i < kLines; ++i) out << "x\n";
  }
  {
    LineFeed feed(path, grid_->lattice, 0, config_.uncertainty);
    feed.Identity(not_cancelled_);
    // The feed waits for chunks to be taken, with most of the file before it.
    std::ofstream(path, std::ios::binary | std::ios::app) << "4 5 6\n";
    EXPECT_EQ(
        testing::ReasonOf(
            [&] { IngestLine(*grid_, config_, {}, path, feed, not_cancelled_, [](int) {}); }),
        "\"" + path + "\" was changed while it was read: submit it again when it is complete");
  }
  const store::Totals totals = grid_->store->TakeSnapshot()->GetTotals();
  EXPECT_EQ(totals.lines, 0U);
  EXPECT_EQ(totals.soundings, 0U);
  EXPECT_EQ(totals.cells, 0U);

  EXPECT_EQ(Ingest(path).used, 2U);
  const std::vector<store::LineRecord> lines = grid_->store->TakeSnapshot()->Lines();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].sequence, 1U);
  EXPECT_EQ(lines[0].file_bytes, std::filesystem::file_size(path));
}

}  // namespace
}  // namespace quarro::service
