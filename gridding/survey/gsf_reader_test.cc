// The reader on a real line, and on files made byte by byte.
#include "gridding/survey/gsf_reader.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include <gtest/gtest.h>

#include "gridding/survey/georeference.h"
#include "gridding/survey/test_files.h"

namespace quarro::survey {
namespace {

const std::string kData = QUARRO_SOURCE_DIR "/../shared/data/";

std::vector<double> Fields(const std::string& row) {
  std::vector<double> fields;
  std::istringstream in(row);
  in.imbue(std::locale::classic());
  for (std::string field; std::getline(in, field, ',');) fields.push_back(std::stod(field));
  return fields;
}

TEST(GsfReader, RealLineHasTheValuesOfAnIndependentReader) {
  std::ifstream expected(kData + "deep_30khz.expected.csv");
  if (!expected) GTEST_SKIP() << "the survey data for tests is not here";
  const WholeLine line = ReadWhole(kData + "deep_30khz.gsf");
  std::string row;
  std::getline(expected, row);
  int rows = 0;
  while (std::getline(expected, row)) {
    const auto field = Fields(row);
    ASSERT_EQ(field.size(), 12U);
    const Ping& ping = line.chunk.pings.at(static_cast<std::size_t>(field[0]));
    EXPECT_NEAR(ping.time_s, field[1], 1e-6);
    EXPECT_NEAR(ping.longitude_deg, field[2], 0.5e-7);
    EXPECT_NEAR(ping.latitude_deg, field[3], 0.5e-7);
    EXPECT_NEAR(ping.heading_deg, field[4], 0.005);
    const std::size_t beam = ping.first_beam + static_cast<std::size_t>(field[5]);
    EXPECT_NEAR(line.chunk.depth_m.at(beam), field[6], 0.0005);
    EXPECT_NEAR(line.chunk.across_m.at(beam), field[7], 0.005);
    EXPECT_NEAR(line.chunk.along_m.at(beam), field[8], 0.005);
    EXPECT_NEAR(line.chunk.sigma_v_m.at(beam) * 1.96, field[9], 0.005);
    EXPECT_NEAR(line.chunk.sigma_h_m.at(beam) * 2.4477, field[10], 0.005);
    EXPECT_EQ(line.chunk.unusable.at(beam), static_cast<int>(field[11]) & 1);
    ++rows;
  }
  EXPECT_EQ(rows, 3 * 432);
}

TEST(GsfReader, RealLineIsAccountedForBeamByBeam) {
  if (!std::filesystem::exists(kData + "deep_30khz.gsf")) {
    GTEST_SKIP() << "the survey data for tests is not here";
  }
  WholeLine line = ReadWhole(kData + "deep_30khz.gsf");
  EXPECT_EQ(line.remark, "");
  EXPECT_EQ(UtmZoneOf(line.chunk.pings[0].longitude_deg, line.chunk.pings[0].latitude_deg), 20);
  Georeferencer georeferencer(20, {});
  Soundings soundings;
  georeferencer.Place(line.chunk, soundings, line.account);
  EXPECT_EQ(line.account.pings, 50U);
  EXPECT_EQ(line.account.soundings_per_ping, 432U);
  EXPECT_EQ(line.account.read, 21600U);
  EXPECT_EQ(line.account.flagged, 641U);
  EXPECT_EQ(line.account.Refused(), 0U);
  EXPECT_EQ(line.account.offered, 20959U);
  const auto [least, greatest] =
      std::minmax_element(soundings.depth_m.begin(), soundings.depth_m.end());
  EXPECT_NEAR(*least, 1165.564, 0.0005);
  EXPECT_NEAR(*greatest, 2316.674, 0.0005);
  double sum = 0.0;
  for (const float depth_m : soundings.depth_m) sum += depth_m;
  EXPECT_NEAR(sum / static_cast<double>(soundings.size()), 1725.765, 0.0005);
}

TEST(GsfReader, BeamsComeWithScaleAndFlagsApplied) {
  const ScratchDirectory scratch;
  const WholeLine line = ReadWhole(
      scratch.Write("a.gsf", Header() + Record(2, PingHeader({}) + UsualScales() + TwoBeams() +
                                                      Subrecord(16, std::string("\x02\x05", 2)))));
  EXPECT_FLOAT_EQ(line.chunk.depth_m.at(0), 12.34F);
  EXPECT_FLOAT_EQ(line.chunk.depth_m.at(1), 56.78F);
  EXPECT_FLOAT_EQ(line.chunk.across_m.at(0), -1.0F);
  EXPECT_EQ(line.chunk.unusable, (std::vector<std::uint8_t>{0, 1}));
  EXPECT_DOUBLE_EQ(line.chunk.pings.at(0).time_s, 1541193704.5);
  EXPECT_TRUE(std::isnan(line.chunk.sigma_v_m.at(0)));
  EXPECT_TRUE(std::isnan(line.chunk.sigma_h_m.at(0)));
  EXPECT_EQ(line.remark, "");
}

TEST(GsfReader, VersionsBefore301HaveTheShortPingHeader) {
  const ScratchDirectory scratch;
  const std::string body = PingHeader({}).substr(0, 42) + UsualScales() + TwoBeams();
  for (const char* version : {"GSF-v02.00", "GSF-v02.03", "GSF-v03.00"}) {
    const WholeLine line = ReadWhole(scratch.Write("old.gsf", Header(version) + Record(2, body)));
    EXPECT_FLOAT_EQ(line.chunk.depth_m.at(1), 56.78F) << version;
  }
}

TEST(GsfReader, APingFlaggedAsAWholeHasNoUsableBeam) {
  const ScratchDirectory scratch;
  const std::string flags = Subrecord(16, std::string(2, '\0'));
  const WholeLine line = ReadWhole(scratch.Write(
      "a.gsf", Header() + Record(2, PingHeader({.flags = 1}) + UsualScales() + TwoBeams() + flags) +
                   Record(2, PingHeader({.flags = 2}) + UsualScales() + TwoBeams() + flags)));
  EXPECT_EQ(line.chunk.unusable, (std::vector<std::uint8_t>{1, 1, 0, 0}));
}

TEST(GsfReader, ScaleFactorsComeFromTheLastPingThatHadThem) {
  const ScratchDirectory scratch;
  const std::string without = Record(2, PingHeader({}) + TwoBeams());
  const WholeLine line = ReadWhole(scratch.Write(
      "a.gsf",
      Header() + GoodPing() + without +
          Record(2, PingHeader({}) + Scales({{1, 10, -100}, {2, 10, 0}, {3, 10, 0}}) + TwoBeams()) +
          without));
  EXPECT_FLOAT_EQ(line.chunk.depth_m.at(2), 12.34F);
  EXPECT_FLOAT_EQ(line.chunk.depth_m.at(4), 223.4F);
  EXPECT_FLOAT_EQ(line.chunk.depth_m.at(6), 223.4F);
  EXPECT_EQ(line.remark, "");
}

TEST(GsfReader, UnknownRecordsRegistriesAndSubrecordsAreSkippedBySize) {
  const ScratchDirectory scratch;
  const WholeLine line = ReadWhole(scratch.Write(
      "a.gsf",
      Header() + Record(99, "abcd") + Record(12, std::string(28, 'x')) +
          // A registry of somebody's own, whose type 2 is no ping.
          Record(2 | 5U << 12U, std::string(80, 'y')) +
          Record(2, PingHeader({}) + Subrecord(134, "abc") + UsualScales() + Subrecord(200, "") +
                        TwoBeams() + Subrecord(21, "intensity") + std::string(3, '\0'))));
  ASSERT_EQ(line.account.read, 2U);
  EXPECT_FLOAT_EQ(line.chunk.depth_m[1], 56.78F);
  EXPECT_EQ(line.remark, "");
}

TEST(GsfReader, AZeroWordEndsThePing) {
  const ScratchDirectory scratch;
  const WholeLine line = ReadWhole(
      scratch.Write("a.gsf", Header() + Record(2, PingHeader({}) + UsualScales() + TwoBeams() +
                                                      Word32(0) + Subrecord(1, Word32(0)))));
  EXPECT_FLOAT_EQ(line.chunk.depth_m.at(0), 12.34F);
}

TEST(GsfReader, ErrorsAreTurnedToOneSigmaAndZeroMeansNotKnown) {
  const ScratchDirectory scratch;
  const std::string scales =
      Scales({{1, 100, 0}, {2, 10, 0}, {3, 10, 0}, {19, 100, 0}, {20, 100, 0}});
  const WholeLine line = ReadWhole(
      scratch.Write("a.gsf", Header() + Record(2, PingHeader({}) + scales + TwoBeams() +
                                                      Subrecord(19, Word16(196) + Word16(0)) +
                                                      Subrecord(20, Word16(0) + Word16(24477)))));
  EXPECT_FLOAT_EQ(line.chunk.sigma_v_m.at(0), 1.0F);
  EXPECT_TRUE(std::isnan(line.chunk.sigma_v_m.at(1)));
  EXPECT_TRUE(std::isnan(line.chunk.sigma_h_m.at(0)));
  EXPECT_FLOAT_EQ(line.chunk.sigma_h_m.at(1), 100.0F);
}

TEST(GsfReader, ErrorsAreInheritedByPingsOfAsManyBeamsOnly) {
  const ScratchDirectory scratch;
  const std::string scales =
      Scales({{1, 100, 0}, {2, 10, 0}, {3, 10, 0}, {19, 100, 0}, {20, 100, 0}});
  const std::string one_beam = PingHeader({.beams = 1}) + Subrecord(1, Word16(1000)) +
                               Subrecord(2, Word16(0)) + Subrecord(3, Word16(0));
  const WholeLine line = ReadWhole(
      scratch.Write("a.gsf", Header() +
                                 Record(2, PingHeader({}) + scales + TwoBeams() +
                                               Subrecord(19, Word16(196) + Word16(392)) +
                                               Subrecord(20, Word16(24477) + Word16(24477))) +
                                 Record(2, PingHeader({}) + TwoBeams()) + Record(2, one_beam)));
  EXPECT_FLOAT_EQ(line.chunk.sigma_v_m.at(2), 1.0F);
  EXPECT_FLOAT_EQ(line.chunk.sigma_v_m.at(3), 2.0F);
  EXPECT_FLOAT_EQ(line.chunk.sigma_h_m.at(3), 100.0F);
  EXPECT_FLOAT_EQ(line.chunk.depth_m.at(4), 10.0F);
  EXPECT_TRUE(std::isnan(line.chunk.sigma_v_m.at(4)));
  EXPECT_TRUE(std::isnan(line.chunk.sigma_h_m.at(4)));
}

TEST(GsfReader, ObsoleteErrorsServeWhereTheNewOnesAreMissing) {
  const ScratchDirectory scratch;
  const std::string scales =
      Scales({{1, 100, 0}, {2, 10, 0}, {3, 10, 0}, {11, 100, 0}, {12, 100, 0}, {13, 100, 0}});
  const WholeLine line = ReadWhole(scratch.Write(
      "a.gsf", Header("GSF-v02.01") + Record(2, PingHeader({}).substr(0, 42) + scales + TwoBeams() +
                                                    Subrecord(11, Word16(50) + Word16(60)) +
                                                    Subrecord(12, Word16(100) + Word16(400)) +
                                                    Subrecord(13, Word16(200) + Word16(300)))));
  EXPECT_FLOAT_EQ(line.chunk.sigma_v_m.at(0), 0.5F);
  EXPECT_FLOAT_EQ(line.chunk.sigma_h_m.at(0), 2.0F);
  EXPECT_FLOAT_EQ(line.chunk.sigma_h_m.at(1), 4.0F);
}

TEST(GsfReader, ChunksAreWholePingsUntilTheyAreFull) {
  const ScratchDirectory scratch;
  constexpr int kBeams = 30000;
  const std::string ping = Record(2, PingHeader({.beams = kBeams}) + UsualScales() +
                                         Subrecord(1, std::string(2 * kBeams, '\x11')) +
                                         Subrecord(2, std::string(2 * kBeams, '\0')) +
                                         Subrecord(3, std::string(2 * kBeams, '\0')));
  const std::string path = scratch.Write("a.gsf", Header() + ping + ping + ping + ping);
  const auto reader = OpenLine(path);
  PingChunk chunk;
  BeamAccount account;
  ASSERT_TRUE(reader->Next(chunk, account));
  EXPECT_EQ(chunk.pings.size(), 3U);
  EXPECT_EQ(chunk.beams(), 90000U);
  ASSERT_TRUE(reader->Next(chunk, account));
  EXPECT_EQ(chunk.pings.size(), 1U);
  EXPECT_EQ(chunk.pings[0].first_beam, 0U);
  EXPECT_FALSE(reader->Next(chunk, account));
  EXPECT_EQ(chunk.beams(), 0U);
  EXPECT_EQ(account.read, 120000U);
  EXPECT_EQ(account.soundings_per_ping, 30000U);
}

TEST(OpenLine, ExtensionChoosesTheReaderWhateverItsCase) {
  const ScratchDirectory scratch;
  EXPECT_TRUE(ReadWhole(scratch.Write("a.XYZ", "1 2 3\n")).chunk.projected);
  EXPECT_TRUE(ReadWhole(scratch.Write("a.Txt", "1 2 3\n")).chunk.projected);
  EXPECT_FALSE(ReadWhole(scratch.Write("a.llz", "1 2 3\n")).chunk.projected);
  EXPECT_FALSE(ReadWhole(scratch.Write("a.LLD", "1 2 3\n")).chunk.projected);
  EXPECT_EQ(ReadWhole(scratch.Write("a.d01", Header() + GoodPing())).account.read, 2U);
}

}  // namespace
}  // namespace quarro::survey
