#include "gridding/rpc/survey_directories.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/exceptions.h"

namespace quarro::rpc {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class SurveyFiles : public ::testing::Test {
 protected:
  SurveyFiles() {
    std::string pattern = (fs::temp_directory_path() / "quarro_survey_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary directory");
    root_ = fs::canonical(pattern);
    Write("north/day1/a.gsf");
    Write("south/b.gsf");
    Write("south/day1/a.gsf");
    Write("north_secret/c.gsf");
  }
  ~SurveyFiles() override { fs::remove_all(root_); }

  void Write(const std::string& name) const {
    fs::create_directories((root_ / name).parent_path());
    std::ofstream(root_ / name) << name;
  }
  std::string At(const std::string& name) const { return (root_ / name).string(); }
  SurveyDirectories Both() const { return SurveyDirectories(At("north") + ":" + At("south")); }

  static std::string Refusal(const SurveyDirectories& directories, const std::string& name) {
    try {
      return "resolved to " + directories.Resolve(name);
    } catch (const ExSGClientBase& refusal) {
      return refusal.what();
    }
  }

  fs::path root_;
};

TEST_F(SurveyFiles, WithoutADirectoryEveryFileIsRefusedAndTheParameterNamed) {
  for (const char* setting : {"", " ", ":", " : ; "}) {
    const SurveyDirectories none(setting);
    for (const std::string& name : {At("south/b.gsf"), std::string("b.gsf"), std::string()}) {
      EXPECT_EQ(Refusal(none, name),
                "the survey file \"" + name +
                    "\" is refused: this engine has no survey directories; set parameter "
                    "SurveyDirectories of section Network");
    }
  }
}

TEST_F(SurveyFiles, RelativeNamesAreLookedForUnderEachDirectoryInTurn) {
  EXPECT_EQ(Both().Resolve("b.gsf"), At("south/b.gsf"));
  EXPECT_EQ(Both().Resolve("day1/a.gsf"), At("north/day1/a.gsf"));
  EXPECT_EQ(Both().Resolve("./day1//a.gsf"), At("north/day1/a.gsf"));
  const SurveyDirectories other_order(At("south") + "/ ; " + At("north"));
  EXPECT_EQ(other_order.Resolve("day1/a.gsf"), At("south/day1/a.gsf"));
}

TEST_F(SurveyFiles, AbsoluteNamesUnderADirectoryAreTaken) {
  EXPECT_EQ(Both().Resolve(At("south/b.gsf")), At("south/b.gsf"));
  EXPECT_EQ(Both().Resolve(At("north/day1/a.gsf")), At("north/day1/a.gsf"));
}

TEST_F(SurveyFiles, TheRootDirectoryHoldsEverything) {
  EXPECT_EQ(SurveyDirectories("/").Resolve(At("south/b.gsf")), At("south/b.gsf"));
}

TEST_F(SurveyFiles, ADirectoryMayBeRelativeToTheCurrentOne) {
  const fs::path before = fs::current_path();
  fs::current_path(root_);
  const SurveyDirectories here("south");
  fs::current_path(before);
  EXPECT_EQ(here.Resolve("b.gsf"), At("south/b.gsf"));
}

TEST_F(SurveyFiles, WhatLiesElsewhereIsRefusedInTheSameWordsWhetherItExistsOrNot) {
  const std::string there = Refusal(Both(), At("north_secret/c.gsf"));
  const std::string absent = Refusal(Both(), At("north_secret/d.gsf"));
  EXPECT_THAT(there, HasSubstr("\"" + At("north_secret/c.gsf") +
                               "\" is refused: no such file under the survey directories \"" +
                               At("north") + "\", \"" + At("south") + "\""));
  EXPECT_EQ(there.substr(there.find("refused")), absent.substr(absent.find("refused")));
  EXPECT_THAT(Refusal(Both(), "/etc/passwd"), HasSubstr("no such file"));
}

TEST_F(SurveyFiles, ParentComponentsAreRefusedEvenIfTheyStayInside) {
  for (const std::string& name :
       {std::string("../south/b.gsf"), std::string("day1/../day1/a.gsf"),
        At("south/../south/b.gsf"), std::string(".."), std::string("day1/..")}) {
    EXPECT_THAT(Refusal(Both(), name), HasSubstr("the name holds \"..\"")) << name;
  }
  Write("south/day..1/a..b.gsf");
  EXPECT_EQ(Both().Resolve("day..1/a..b.gsf"), At("south/day..1/a..b.gsf"));
}

TEST_F(SurveyFiles, LinksInsideTheDirectoriesAreResolved) {
  fs::create_symlink("b.gsf", root_ / "south/link.gsf");
  fs::create_directory_symlink(root_ / "north/day1", root_ / "south/other");
  EXPECT_EQ(Both().Resolve("link.gsf"), At("south/b.gsf"));
  EXPECT_EQ(Both().Resolve("other/a.gsf"), At("north/day1/a.gsf"));
}

TEST_F(SurveyFiles, LinksThatLeadOutAreRefusedAsIfNothingWereThere) {
  fs::create_symlink(root_ / "north_secret/c.gsf", root_ / "south/leak.gsf");
  fs::create_directory_symlink("/", root_ / "south/top");
  fs::create_symlink(root_ / "nowhere", root_ / "south/dangling.gsf");
  fs::create_symlink("circle.gsf", root_ / "south/circle.gsf");
  for (const char* name :
       {"leak.gsf", "top/etc/passwd", "top/etc/no_such_file", "dangling.gsf", "circle.gsf"}) {
    EXPECT_THAT(Refusal(Both(), name), HasSubstr("no such file under the survey directories"))
        << name;
  }
}

TEST_F(SurveyFiles, AFileHiddenByALinkThatLeadsOutIsFoundUnderTheNextDirectory) {
  fs::create_symlink(root_ / "north_secret/c.gsf", root_ / "north/b.gsf");
  EXPECT_EQ(Both().Resolve("b.gsf"), At("south/b.gsf"));
}

TEST_F(SurveyFiles, ADirectoryThatIsItselfALinkServesUnderBothNames) {
  fs::create_directory_symlink(root_ / "south", root_ / "today");
  const SurveyDirectories linked(At("today"));
  EXPECT_EQ(linked.Resolve("b.gsf"), At("south/b.gsf"));
  EXPECT_EQ(linked.Resolve(At("today/b.gsf")), At("south/b.gsf"));
  EXPECT_EQ(linked.Resolve(At("south/b.gsf")), At("south/b.gsf"));
}

TEST_F(SurveyFiles, OnlyRegularFilesAreTaken) {
  ASSERT_EQ(mkfifo(At("south/pipe").c_str(), 0600), 0);
  EXPECT_THAT(Refusal(Both(), "pipe"), HasSubstr("it is no regular file"));
  EXPECT_THAT(Refusal(Both(), "day1"), HasSubstr("it is no regular file"));
  EXPECT_THAT(Refusal(Both(), At("south")), HasSubstr("refused"));
  EXPECT_THAT(Refusal(SurveyDirectories("/dev"), "null"), HasSubstr("it is no regular file"));
}

TEST_F(SurveyFiles, EmptyNamesAndZeroBytesAreRefused) {
  EXPECT_THAT(Refusal(Both(), ""), HasSubstr("the name is empty"));
  EXPECT_EQ(Refusal(Both(), std::string("b.gsf\0.txt", 10)),
            "the survey file \"b.gsf?.txt\" is refused: the name holds a zero byte");
}

TEST_F(SurveyFiles, ANameCannotForgeALineOfTheLog) {
  EXPECT_THAT(Refusal(Both(), "x\nline 7 completed\x1b[2J\x7f"),
              HasSubstr("the survey file \"x?line 7 completed?[2J?\" is refused"));
}

TEST_F(SurveyFiles, ADirectoryThatAppearsLaterServesFromThen) {
  const SurveyDirectories later(At("mounted"));
  EXPECT_THAT(later.Missing(), ElementsAre(At("mounted")));
  EXPECT_THAT(Refusal(later, "e.gsf"), HasSubstr("no such file under the survey directories \"" +
                                                 At("mounted") + "\" (no such folder)"));
  Write("mounted/e.gsf");
  EXPECT_EQ(later.Resolve("e.gsf"), At("mounted/e.gsf"));
  EXPECT_THAT(later.Missing(), IsEmpty());
  EXPECT_THAT(Refusal(later, "f.gsf"), Not(HasSubstr("no such folder")));
}

TEST_F(SurveyFiles, AFileInThePlaceOfADirectoryIsNoFolder) {
  const SurveyDirectories both(At("north") + ";" + At("south/b.gsf"));
  EXPECT_THAT(both.Missing(), ElementsAre(At("south/b.gsf")));
  EXPECT_THAT(Refusal(both, "x.gsf"),
              HasSubstr("\"" + At("north") + "\", \"" + At("south/b.gsf") + "\" (no such folder)"));
}

TEST_F(SurveyFiles, AVeryLongNameIsRefused) {
  EXPECT_THAT(Refusal(Both(), std::string(100000, 'a')), HasSubstr("no such file"));
}

}  // namespace
}  // namespace quarro::rpc
