// Completion of command and file names.
#include "app/completion.h"

#include <fstream>

#include <boost/filesystem.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<std::string> kNames = {"attach", "help", "set", "show"};

TEST(Completion, OfACommandThatIsAloneEndsTheWord) {
  EXPECT_EQ(Complete("at", kNames).insertion, "tach ");
  EXPECT_EQ(Complete("  at", kNames).insertion, "tach ");
}

TEST(Completion, OfSeveralCommandsGoesAsFarAsTheyAgree) {
  const Completion completion = Complete("s", kNames);
  EXPECT_EQ(completion.insertion, "");
  EXPECT_THAT(completion.candidates, ElementsAre("set", "show"));
}

TEST(Completion, OfAnUnknownCommandFindsNothing) {
  EXPECT_EQ(Complete("x", kNames).insertion, "");
  EXPECT_THAT(Complete("x", kNames).candidates, IsEmpty());
}

TEST(Completion, AfterHelpNamesCommands) {
  EXPECT_EQ(Complete("help sh", kNames).insertion, "ow ");
}

TEST(Completion, OfOtherWordsNamesFiles) {
  namespace fs = boost::filesystem;
  const fs::path folder = fs::temp_directory_path() / fs::unique_path("quarro_%%%%%%%%%%%%");
  fs::create_directories(folder / "lines");
  std::ofstream((folder / "lines.txt").string()) << "";
  std::ofstream((folder / "log").string()) << "";
  std::ofstream((folder / ".hidden").string()) << "";
  const std::string start = "filelist " + folder.string();

  EXPECT_EQ(Complete(start + "/lo", kNames).insertion, "g ");
  const Completion several = Complete(start + "/li", kNames);
  EXPECT_EQ(several.insertion, "nes");
  EXPECT_THAT(several.candidates,
              ElementsAre(folder.string() + "/lines.txt", folder.string() + "/lines/"));
  EXPECT_EQ(Complete(start + "/.h", kNames).insertion, "idden ");
  EXPECT_THAT(Complete(start + "/", kNames).candidates,
              ElementsAre(folder.string() + "/lines.txt", folder.string() + "/lines/",
                          folder.string() + "/log"));
  EXPECT_THAT(Complete(start + "/no/", kNames).candidates, IsEmpty());
  fs::remove_all(folder);
}

}  // namespace
}  // namespace quarro
