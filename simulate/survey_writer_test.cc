// What is left of lines that cannot be written.
#include "simulate/survey_writer.h"

#include <string>

#include <gtest/gtest.h>

#include "gridding/survey/test_files.h"
#include "output/file_size_limit.h"
#include "simulate/part_file.h"
#include "simulate/test_survey.h"

namespace quarro::simulate {
namespace {

using survey::ScratchDirectory;

std::size_t FilesIn(const std::string& directory) {
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    files += entry.is_regular_file() ? 1 : 0;
  }
  return files;
}

std::string ErrorOf(const SurveyOptions& options, const std::string& directory, unsigned threads,
                    bool overwrite) {
  try {
    WriteSurvey(options, directory, threads, overwrite);
  } catch (const std::exception& error) {
    return error.what();
  }
  return "no error";
}

TEST(SurveyWriter, ALineCutShortLeavesNoFile) {
  const ScratchDirectory scratch;
  std::string error;
  {
    const FileSizeLimit limit(20000);
    error = ErrorOf(SmallSurvey(), scratch.File("lines"), 2, false);
  }
  EXPECT_NE(error.find("cannot be written: File too large"), std::string::npos) << error;
  EXPECT_EQ(FilesIn(scratch.File("lines")), 0U);
}

TEST(SurveyWriter, ALineThatExistsStaysUntilANewOneIsWhole) {
  const ScratchDirectory scratch;
  std::filesystem::create_directory(scratch.File("lines"));
  scratch.Write("lines/line_001.gsf", "old");
  {
    const FileSizeLimit limit(20000);
    EXPECT_NE(ErrorOf(SmallSurvey(), scratch.File("lines"), 1, true), "no error");
  }
  EXPECT_EQ(survey::BytesOf(scratch.File("lines/line_001.gsf")), "old");
  EXPECT_EQ(ErrorOf(SmallSurvey(), scratch.File("lines"), 1, true), "no error");
  EXPECT_EQ(survey::ReadWhole(scratch.File("lines/line_001.gsf")).account.read, 126U * 64U);
  EXPECT_EQ(FilesIn(scratch.File("lines")), 3U);
}

TEST(SurveyWriter, AfterALineThatFailedNoOtherIsBegun) {
  const ScratchDirectory scratch;
  std::filesystem::create_directories(scratch.File("lines/line_002.gsf.part"));
  EXPECT_NE(ErrorOf(SmallSurvey(), scratch.File("lines"), 1, false)
                .find("line_002.gsf.part\" cannot be written: Is a directory"),
            std::string::npos);
  EXPECT_TRUE(std::filesystem::exists(scratch.File("lines/line_001.gsf")));
  EXPECT_FALSE(std::filesystem::exists(scratch.File("lines/line_003.gsf")));
}

TEST(SurveyWriter, ADirectoryInALinesPlaceIsToldAsOne) {
  const ScratchDirectory scratch;
  std::filesystem::create_directories(scratch.File("lines/line_001.gsf"));
  EXPECT_NE(ErrorOf(SmallSurvey(), scratch.File("lines"), 1, true)
                .find("line_001.gsf\" is a directory; it must be a file"),
            std::string::npos);
}

}  // namespace
}  // namespace quarro::simulate
