// Text lines: what is read, skipped, refused.
#include "gridding/survey/text_reader.h"

#include <cmath>
#include <locale>

#include <gtest/gtest.h>

#include "gridding/survey/georeference.h"
#include "gridding/survey/test_files.h"

namespace quarro::survey {
namespace {

class TextLine : public testing::Test {
 protected:
  WholeLine Read(const std::string& text) { return ReadWhole(scratch_.Write("a.xyz", text)); }
  std::string Refusal(const std::string& text) {
    try {
      Read(text);
    } catch (const LineError& error) {
      return error.what();
    }
    return "no error";
  }
  static BeamAccount Placed(const WholeLine& line) {
    BeamAccount account = line.account;
    Soundings soundings;
    Georeferencer(31, {}).Place(line.chunk, soundings, account);
    return account;
  }

  ScratchDirectory scratch_;
};

TEST_F(TextLine, BlanksTabsAndCommasSeparate) {
  const WholeLine line = Read("1.5 2.5 3.5\n4\t5\t6\n7,8,9\n 10 , 11 ,\t12 \n+1e1 -2E0 .5\r\n");
  ASSERT_EQ(line.account.read, 5U);
  EXPECT_EQ(line.remark, "");
  EXPECT_EQ(line.account.pings, 5U);
  EXPECT_EQ(line.account.soundings_per_ping, 1U);
  EXPECT_TRUE(line.chunk.projected);
  EXPECT_EQ(line.chunk.depth_m, (std::vector<float>{3.5F, 6.0F, 9.0F, 12.0F, 0.5F}));
  EXPECT_EQ(line.chunk.pings[0].longitude_deg, 1.5);
  EXPECT_EQ(line.chunk.pings[0].latitude_deg, 2.5);
  EXPECT_EQ(line.chunk.pings[3].latitude_deg, 11.0);
  EXPECT_EQ(line.chunk.pings[4].longitude_deg, 10.0);
  EXPECT_EQ(line.chunk.pings[4].latitude_deg, -2.0);
}

TEST_F(TextLine, SigmasAreOptionalAndZeroOrNothingMeansNotKnown) {
  const WholeLine line = Read("1 2 3 0.4 0.5\n1 2 3 0.4\n1 2 3 0 nan\n1,2,3,,0.7\n1,2,3,\n");
  EXPECT_EQ(line.remark, "");
  EXPECT_FLOAT_EQ(line.chunk.sigma_v_m.at(0), 0.4F);
  EXPECT_FLOAT_EQ(line.chunk.sigma_h_m.at(0), 0.5F);
  EXPECT_FLOAT_EQ(line.chunk.sigma_v_m.at(1), 0.4F);
  EXPECT_TRUE(std::isnan(line.chunk.sigma_h_m.at(1)));
  EXPECT_TRUE(std::isnan(line.chunk.sigma_v_m.at(2)));
  EXPECT_TRUE(std::isnan(line.chunk.sigma_v_m.at(3)));
  EXPECT_FLOAT_EQ(line.chunk.sigma_h_m.at(3), 0.7F);
  EXPECT_TRUE(std::isnan(line.chunk.sigma_h_m.at(4)));
}

TEST_F(TextLine, CommentsBlankLinesAndOneHeaderAreSkipped) {
  const WholeLine line =
      Read("\xEF\xBB\xBF# survey\n\n  \t\nEasting,Northing,Depth\n1,2,3\n #x\n4,5,6");
  EXPECT_EQ(line.chunk.depth_m, (std::vector<float>{3.0F, 6.0F}));
  EXPECT_EQ(line.remark, "");
  const WholeLine twice = Read("x y z\nx y z\n1 2 3\n");
  EXPECT_EQ(twice.account.read, 2U);
  EXPECT_EQ(twice.remark, "line 2 is no sounding: \"x y z\"");
}

TEST_F(TextLine, ABadLineIsABeamRefusedAndTheFirstIsNamed) {
  const WholeLine line =
      Read("1 2 3\n1 2\n1 2 3m\n1 2 3 4 5 6\n1 2 inf\n1 2 1e300\n1 2 3 -1\n4 5 6\n");
  EXPECT_EQ(line.remark, "line 2 is no sounding: \"1 2\" (and 5 more)");
  const BeamAccount account = Placed(line);
  EXPECT_EQ(account.read, 8U);
  EXPECT_EQ(account.refused[static_cast<std::size_t>(Refusal::kNotFinite)], 6U);
  EXPECT_EQ(account.offered, 2U);
}

TEST_F(TextLine, ANumberHasOneSign) {
  const WholeLine line =
      Read("+1 -2 +3\n+-1 2 3\n1 +-2 3\n1 2 +-3\n1 2 ++3\n1 2 -+3\n1 2 --3\n1 2 3 +-0\n4 5 -6\n");
  EXPECT_EQ(line.remark, "line 2 is no sounding: \"+-1 2 3\" (and 6 more)");
  EXPECT_EQ(line.chunk.depth_m.at(0), 3.0F);
  for (std::size_t i = 1; i < 8; ++i) EXPECT_TRUE(std::isnan(line.chunk.depth_m.at(i))) << i;
  EXPECT_EQ(line.chunk.depth_m.at(8), -6.0F);
}

TEST_F(TextLine, DamagedLinesShowAsPrintableText) {
  const WholeLine line = Read("1 2 3\n\x01\x1B[31m" + std::string(100, 'x') + "\n");
  EXPECT_EQ(line.remark, "line 2 is no sounding: \"??[31m" + std::string(54, 'x') + "...\"");
}

TEST_F(TextLine, AnEndlessLineIsOneBadLine) {
  const WholeLine line = Read("1 2 3\n" + std::string(3'000'000, '7') + "\n4 5 6\n");
  EXPECT_EQ(line.account.read, 3U);
  EXPECT_EQ(Placed(line).offered, 2U);
  EXPECT_EQ(line.chunk.depth_m.at(2), 6.0F);
}

TEST_F(TextLine, FilesWithoutASoundingAreRefused) {
  EXPECT_NE(Refusal("# only this\n\n").find("holds no sounding"), std::string::npos);
  EXPECT_NE(Refusal("x y z\n").find("holds no sounding"), std::string::npos);
  EXPECT_NE(Refusal("a b\nc d\n").find("line 2 is no sounding"), std::string::npos);
  EXPECT_NE(Refusal(std::string("1 2 3\0\n", 7)).find("is not text"), std::string::npos);
  EXPECT_NE(Refusal("").find("is empty"), std::string::npos);
}

TEST_F(TextLine, DegreesAreProjected) {
  const WholeLine line = ReadWhole(scratch_.Write("a.llz", "3.0 0.0 25\n"));
  Soundings soundings;
  BeamAccount account;
  Georeferencer(31, {}).Place(line.chunk, soundings, account);
  ASSERT_EQ(soundings.size(), 1U);
  EXPECT_NEAR(soundings.easting_m[0], 500000.0, 1e-6);
  EXPECT_NEAR(soundings.northing_m[0], 0.0, 1e-6);
  EXPECT_EQ(soundings.depth_m[0], 25.0F);
}

TEST_F(TextLine, ChunksAreTheSameWhateverTheBuffer) {
  std::string text;
  for (int i = 1; i <= 200000; ++i) text += std::to_string(i) + " 2 3\n";
  const std::string path = scratch_.Write("a.xyz", text);
  const auto reader = OpenLine(path);
  PingChunk chunk;
  BeamAccount account;
  double next = 1.0;
  while (reader->Next(chunk, account)) {
    EXPECT_LE(chunk.beams(), LineReader::kBeamsPerChunk);
    for (const Ping& ping : chunk.pings) ASSERT_EQ(ping.longitude_deg, next++);
  }
  EXPECT_EQ(account.read, 200000U);
}

// Decimal commas and dotted thousands, as German has them.
class CommaNumbers : public std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(TextLine, ACommaLocaleChangesNothing) {
  const std::locale before =
      std::locale::global(std::locale(std::locale::classic(), new CommaNumbers));
  const WholeLine line = Read("1.5 2.5 3.5\n1 2\n");
  std::locale::global(before);
  EXPECT_EQ(line.chunk.depth_m.at(0), 3.5F);
  EXPECT_EQ(line.chunk.pings.at(0).longitude_deg, 1.5);
  EXPECT_EQ(line.remark, "line 2 is no sounding: \"1 2\"");
}

}  // namespace
}  // namespace quarro::survey
