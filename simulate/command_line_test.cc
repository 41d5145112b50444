// The command line of Quarro_Simulate: what it does, tells and refuses.
#include "simulate/command_line.h"

#include <cmath>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#include "gridding/survey/test_files.h"
#include "simulate/survey_writer.h"

namespace quarro::simulate {
namespace {

using survey::ScratchDirectory;

class CommandLine : public testing::Test {
 protected:
  int Run(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "Quarro_Simulate");
    out_.str("");
    err_.str("");
    return simulate::Run(static_cast<int>(arguments.size()), arguments.data(), out_, err_);
  }

  ScratchDirectory scratch_;
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(CommandLine, WritesLinesAndTruthAndTellsWhat) {
  const std::string lines = scratch_.File("lines");
  const std::string truth = scratch_.File("truth.xyz");
  ASSERT_EQ(Run({"--output", lines.c_str(), "--lines", "2", "--line-length", "40", "--beams", "16",
                 "--seafloor", "flat", "--depth", "25", "--truth", truth.c_str(), "--truth-spacing",
                 "20"}),
            0)
      << err_.str();
  EXPECT_NE(out_.str().find("wrote 2 lines of 51 pings of 16 beams"), std::string::npos)
      << out_.str();
  EXPECT_NE(
      out_.str().find("1632 soundings, 0 flagged, 0 spikes, 0 on bursts, UTM zone 31 (EPSG:32631)"),
      std::string::npos)
      << out_.str();
  EXPECT_NE(out_.str().find("true depths to \"" + truth + "\", UTM zone 31 (EPSG:32631)\n"),
            std::string::npos)
      << out_.str();
  EXPECT_EQ(survey::ReadWhole(lines + "/line_002.gsf").account.read, 816U);
  const survey::WholeLine depths = survey::ReadWhole(truth);
  ASSERT_GT(depths.account.read, 4U);
  EXPECT_EQ(depths.chunk.depth_m[0], 25.0F);
  EXPECT_EQ(std::remainder(depths.chunk.pings[0].longitude_deg, 20.0), 0.0);
}

TEST_F(CommandLine, ListsOfLinesNameTheLinesWithFaults) {
  const std::string lines = scratch_.File("lines");
  ASSERT_EQ(Run({"--output", lines.c_str(), "--lines", "6", "--line-length", "10", "--beams", "8",
                 "--seafloor", "flat", "--depth", "25", "--noise", "0", "--offset-lines", "1,3-4",
                 "--offset", "2"}),
            0)
      << err_.str();
  const auto depth_m = [&](std::uint32_t line) {
    return survey::ReadWhole(lines + "/" + LineFileName(line)).chunk.depth_m.front();
  };
  EXPECT_EQ(depth_m(0), 27.0F);
  EXPECT_EQ(depth_m(1), 25.0F);
  EXPECT_EQ(depth_m(2), 27.0F);
  EXPECT_EQ(depth_m(3), 27.0F);
  EXPECT_EQ(depth_m(4), 25.0F);
}

TEST_F(CommandLine, TruthAtPositionsGivesOneDepthALine) {
  const std::string positions =
      scratch_.Write("positions.txt", "# where\n500000 6000000 7\n\n500010.5 6000000\n");
  const std::string truth = scratch_.File("truth.xyz");
  ASSERT_EQ(Run({"--seafloor", "flat", "--truth-at", positions.c_str(), "--truth", truth.c_str()}),
            0)
      << err_.str();
  EXPECT_EQ(survey::BytesOf(truth),
            "500000.000 6000000.000 50.000\n500010.500 6000000.000 50.000\n");
}

TEST_F(CommandLine, LinesThatExistAreNotOverwrittenUnasked) {
  const std::string lines = scratch_.File("lines");
  const std::vector<const char*> arguments = {"--output", lines.c_str(), "--lines",       "1",
                                              "--beams",  "4",           "--line-length", "10"};
  ASSERT_EQ(Run(arguments), 0);
  EXPECT_EQ(Run(arguments), 1);
  EXPECT_NE(err_.str().find("line_001.gsf\" exists already"), std::string::npos) << err_.str();
  auto overwriting = arguments;
  overwriting.push_back("--overwrite");
  EXPECT_EQ(Run(overwriting), 0) << err_.str();
}

TEST_F(CommandLine, ErrorsNameTheOptionAndGiveStatus1) {
  const std::string lines = scratch_.File("lines");
  const auto error_of = [&](const char* option, const char* value) {
    EXPECT_EQ(Run({"--output", lines.c_str(), option, value}), 1) << option;
    return err_.str();
  };
  EXPECT_NE(error_of("--seafloor", "cheese").find("it must be flat, slope, waves"),
            std::string::npos);
  EXPECT_NE(
      error_of("--bursts", "400").find("--bursts is 400 of 4 pings a line; a line has room for"),
      std::string::npos)
      << err_.str();
  EXPECT_NE(error_of("--smile-lines", "1,x").find("\"1,x\" is no list of lines"), std::string::npos)
      << err_.str();
  EXPECT_NE(error_of("--offset-lines", "4-6").find("--offset-lines is 6; it must lie between 1"),
            std::string::npos)
      << err_.str();
  EXPECT_NE(error_of("--wreck-length", "3").find("--wreck-length is 3; it must lie between 4"),
            std::string::npos)
      << err_.str();
  EXPECT_NE(error_of("--spikes", "1.5").find("--spikes is 1.5; it must lie between 0 and 1"),
            std::string::npos);
  for (const char* option : {"--lines", "--beams", "--rocks", "--seed", "--threads"}) {
    for (const char* value : {"-1", "+1", "1.5", "", "many"}) {
      EXPECT_NE(error_of(option, value)
                    .find(std::string(option) + " is " + value +
                          "; it must be a whole number without a sign"),
                std::string::npos)
          << err_.str();
    }
  }
  EXPECT_NE(error_of("--lines", "4294967296").find("--lines is 4294967296; it must be 4294967295"),
            std::string::npos)
      << err_.str();
  EXPECT_NE(error_of("--smile-lines", "5-1")
                .find("\"5-1\" is no list of lines: the range 5-1 "
                      "descends; give 1-5"),
            std::string::npos)
      << err_.str();
  for (const char* option : {"--vertical-fixed", "--vertical-proportional", "--horizontal-fixed",
                             "--horizontal-proportional", "--angle-growth"}) {
    EXPECT_NE(
        error_of(option, "-1").find(std::string(option) + " is -1; it must lie between 0 and 1000"),
        std::string::npos)
        << err_.str();
  }
  EXPECT_NE(error_of("--depth", "nan").find("--depth is nan"), std::string::npos);
  EXPECT_NE(error_of("--depth", "deep").find("depth"), std::string::npos);
  EXPECT_NE(error_of("--depht", "5").find("--depht"), std::string::npos);
  EXPECT_EQ(Run({}), 1);
  EXPECT_NE(err_.str().find("nothing to write"), std::string::npos);
  EXPECT_EQ(Run({"--output", "/dev/null/lines"}), 1);
  EXPECT_NE(err_.str().find("cannot make the directory \"/dev/null/lines\""), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(lines));
}

TEST_F(CommandLine, ErrorsOfTheTruthAreToldBeforeAnyLineIsWritten) {
  const std::string lines = scratch_.File("lines");
  const std::string truth = scratch_.File("truth.xyz");
  const std::string bad = scratch_.Write("bad.txt", "500000 6000000\nhere\n");
  const std::vector<std::vector<const char*>> wrong = {
      {"--truth", "/nonexistent/truth.xyz"},
      {"--truth", truth.c_str(), "--truth-spacing", "0"},
      {"--truth", truth.c_str(), "--truth-at", bad.c_str()},
      {"--truth", truth.c_str(), "--truth-at", "/nonexistent/positions.txt"},
      {"--truth", bad.c_str()},
      {"--truth", "/dev/full"}};
  for (std::vector<const char*> arguments : wrong) {
    arguments.insert(arguments.end(), {"--output", lines.c_str(), "--lines", "1", "--beams", "4",
                                       "--line-length", "10"});
    EXPECT_EQ(Run(arguments), 1);
    EXPECT_EQ(out_.str(), "");
    EXPECT_FALSE(std::filesystem::exists(lines + "/line_001.gsf")) << err_.str();
    EXPECT_FALSE(std::filesystem::exists(truth)) << err_.str();
  }
  EXPECT_EQ(survey::BytesOf(bad), "500000 6000000\nhere\n");
}

TEST_F(CommandLine, NoTruthStaysOfLinesThatFailed) {
  const std::string lines = scratch_.File("lines");
  const std::string truth = scratch_.File("truth.xyz");
  std::filesystem::create_directories(lines + "/line_001.gsf.part");
  EXPECT_EQ(Run({"--output", lines.c_str(), "--lines", "1", "--beams", "4", "--line-length", "10",
                 "--truth", truth.c_str()}),
            1);
  EXPECT_NE(err_.str().find("line_001.gsf.part\" cannot be written"), std::string::npos)
      << err_.str();
  EXPECT_FALSE(std::filesystem::exists(truth));
  EXPECT_FALSE(std::filesystem::exists(truth + ".part"));
}

TEST_F(CommandLine, TheTruthReplacesNoLine) {
  const std::string lines = scratch_.File("lines");
  const std::string truth = lines + "/line_001.gsf";
  EXPECT_EQ(Run({"--output", lines.c_str(), "--lines", "1", "--beams", "4", "--line-length", "10",
                 "--truth", truth.c_str(), "--overwrite"}),
            1);
  EXPECT_NE(err_.str().find("one of the lines of --output"), std::string::npos) << err_.str();
}

TEST_F(CommandLine, TheTruthMayLieBesideTheLines) {
  const std::string lines = scratch_.File("lines");
  const std::string truth = lines + "/truth.xyz";
  EXPECT_EQ(Run({"--output", lines.c_str(), "--lines", "1", "--beams", "4", "--line-length", "10",
                 "--truth", truth.c_str()}),
            0)
      << err_.str();
  EXPECT_TRUE(std::filesystem::exists(truth));
}

TEST_F(CommandLine, TheTruthAloneTellsTheZoneOfTheSouth) {
  const std::string truth = scratch_.File("truth.xyz");
  ASSERT_EQ(Run({"--truth", truth.c_str(), "--latitude", "-33.9", "--longitude", "151.3"}), 0)
      << err_.str();
  EXPECT_NE(out_.str().find("UTM zone -56 (EPSG:32756)"), std::string::npos) << out_.str();
}

TEST_F(CommandLine, HelpListsTheOptions) {
  EXPECT_EQ(Run({"--help"}), 0);
  EXPECT_NE(out_.str().find("--truth-spacing"), std::string::npos);
}

}  // namespace
}  // namespace quarro::simulate
