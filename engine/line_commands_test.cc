// filelist, add, commit and clear, and the account of completed lines.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/command_fixture.h"

namespace quarro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Filelist : public CommandFixture {};

TEST_F(Filelist, KeepsTheNonEmptyLinesAsTheyStand) {
  const std::string path = File("lines", "a.gsf\n\n b.gsf \nc.gsf\r\n");
  EXPECT_THAT(Printed("filelist " + path),
              ElementsAre("1 loaded 3 filenames from \"" + path + "\"."));
  EXPECT_THAT(State().filelist, ElementsAre("a.gsf", " b.gsf ", "c.gsf\r"));
}

TEST_F(Filelist, AnEmptyFileGivesAnEmptyList) {
  State().filelist = {"old"};
  const std::string path = File("lines", "");
  EXPECT_THAT(Printed("filelist " + path),
              ElementsAre("1 loaded 0 filenames from \"" + path + "\"."));
  EXPECT_THAT(State().filelist, IsEmpty());
}

TEST_F(Filelist, AFileThatCannotBeOpenedLeavesTheList) {
  State().filelist = {"old"};
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("filelist /nowhere"),
              ElementsAre("4 can't open \"/nowhere\" for input."));
  EXPECT_THAT(State().filelist, ElementsAre("old"));
}

TEST_F(Filelist, AFileThatCannotBeReadLeavesTheList) {
  // It opens, and its first byte, at an address that is never mapped, cannot be read.
  const std::string path = "/proc/self/mem";
  if (!std::ifstream(path).is_open()) {
    GTEST_SKIP() << path << " cannot be opened here";
  }
  State().filelist = {"old"};
  EXPECT_THAT(PrintedBefore<CommandProcessor::cmd_failed>("filelist " + path),
              ElementsAre("4 reading \"" + path +
                          "\" failed after 0 filenames; the filelist is unchanged."));
  EXPECT_THAT(State().filelist, ElementsAre("old"));
}

class Clear : public CommandFixture {
 protected:
  Clear() { State().filelist = {"a", "b", "c", "d", "e"}; }
};

TEST_F(Clear, AloneEmptiesTheList) {
  EXPECT_THAT(Printed("clear"), ElementsAre("1 all lines removed from file list."));
  EXPECT_THAT(State().filelist, IsEmpty());
}

TEST_F(Clear, ARangeGoesBothEndsIncluded) {
  EXPECT_THAT(Printed("clear 2 4"), ElementsAre("1 3 lines removed from file list."));
  EXPECT_THAT(State().filelist, ElementsAre("a", "e"));
}

TEST_F(Clear, ARangeBeyondTheListIsRefused) {
  const auto refusal = ElementsAre("4 start must be less than end, and both in range [1, 5].");
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("clear 5 6"), refusal);
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("clear 0 1"), refusal);
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("clear 3 2"), refusal);
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("clear 1 -1"), refusal);
  EXPECT_EQ(State().filelist.size(), 5U);
}

TEST_F(Clear, AWordForAPositionIsRefused) {
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("clear 1 x"),
              ElementsAre("4 failed to parse parameters for start/end lines."));
}

TEST_F(Clear, OneEndAloneShowsTheHelp) {
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("clear 1"),
              ElementsAre("1 \tclear [<start><end>]",
                          "1 \t\tClear all (or a range) of the filelist from memory"));
}

class Submission : public CommandFixture {
 protected:
  Submission() {
    PretendGrid();
    State().filelist = {"a", "b", "c", "d", "e"};
    client_.answer = FakeFrontEnd::Answer::kWhenDelivered;
  }
};

TEST_F(Submission, AddSendsItsWordAsTheFile) {
  State().basedir = "/survey";
  EXPECT_THAT(Printed("add 1"), ElementsAre("1 committing line addition command to the server.",
                                            "1 line committed to server for processing."));
  EXPECT_THAT(client_.calls, ElementsAre("AddLine 1 0 0"));
  EXPECT_EQ(State().next_line_id, 1U);
  EXPECT_EQ(State().pending_lines.Count(), 1U);
}

TEST_F(Submission, CommitTakesARangeFromTheList) {
  EXPECT_THAT(Printed("commit 1 2"), ElementsAre("1 sending lines to server for execution.",
                                                 "1 2 lines committed to server for processing."));
  EXPECT_THAT(client_.calls, ElementsAre("AddLine a 0 0", "AddLine b 1 0"));
  EXPECT_THAT(State().filelist, ElementsAre("c", "d", "e"));
}

TEST_F(Submission, CommitOfOneLineIsARange) {
  Printed("commit 2 2");
  EXPECT_THAT(client_.calls, ElementsAre("AddLine b 0 0"));
}

TEST_F(Submission, OnlyTheLastLineOfARangeCarriesTheRendezvous) {
  Printed("commit 1 3 rendezvous");
  EXPECT_THAT(client_.calls, ElementsAre("AddLine a 0 0", "AddLine b 1 0", "AddLine c 2 1"));
}

TEST_F(Submission, FilesAreJoinedToTheBaseDirectory) {
  State().basedir = "/survey";
  Printed("commit 1 1");
  State().basedir = "day2/";
  Printed("commit 1 1");
  EXPECT_THAT(client_.calls, ElementsAre("AddLine /survey/a 0 0", "AddLine day2/b 1 0"));
}

TEST_F(Submission, CommitOutsideTheListIsRefused) {
  const auto refusal = ElementsAre("4 start must be less than end, and both in range [1, 5].");
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("commit 0 1"), refusal);
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("commit 3 2"), refusal);
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("commit 5 6"), refusal);
  EXPECT_THAT(client_.calls, IsEmpty());
}

TEST_F(Submission, CommitWithAnotherThirdWordShowsTheHelp) {
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("commit 1 2 sync"),
              ElementsAre("1 \tcommit <start><end> [rendezvous]",
                          "1 \t\tCommit a range of lines from the current filelist to the current "
                          "grid, optionally synchronising"));
  EXPECT_THAT(client_.calls, IsEmpty());
}

TEST_F(Submission, CommitWithWordsForPositionsIsRefused) {
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("commit a b"),
              ElementsAre("4 failed to parse parameters for start/end lines."));
}

TEST_F(Submission, ARefusedLineStopsNeitherTheRangeNorItsErasure) {
  client_.refusal = [](const std::string& call) {
    if (call.find(" b ") != std::string::npos) {
      throw ExSGClientBase("queue full");
    }
  };
  EXPECT_THAT(Printed("commit 1 3"), ElementsAre("1 sending lines to server for execution.",
                                                 "4 failed to send command to server (queue full).",
                                                 "1 3 lines committed to server for processing."));
  EXPECT_THAT(client_.calls, ElementsAre("AddLine a 0 0", "AddLine b 1 0", "AddLine c 1 0"));
  EXPECT_EQ(State().next_line_id, 2U);
  EXPECT_THAT(State().filelist, ElementsAre("d", "e"));
}

TEST_F(Submission, ARefusedLineStaysPendingAndTheOneBeforeItGoes) {
  Printed("add first");
  client_.refusal = [](const std::string&) { throw ExSGClientBase("queue full"); };
  EXPECT_THAT(Printed("add second"),
              ElementsAre("1 committing line addition command to the server.",
                          "4 failed to send command to server (queue full).",
                          "1 line committed to server for processing."));
  std::string name;
  EXPECT_FALSE(State().pending_lines.Take(0, name));
  EXPECT_TRUE(State().pending_lines.Take(1, name));
  EXPECT_EQ(name, "second");
  EXPECT_EQ(State().next_line_id, 1U);
}

class LineAccount : public Submission {
 protected:
  void LineIs(const ResultLineAdded& line) {
    client_.result = [line] { return new ResultLineAdded(line); };
  }
  static ResultLineAdded Line(std::uint32_t line_id, std::uint32_t failed, std::uint32_t pings,
                              std::uint32_t soundings_per_ping, std::uint32_t rejected,
                              std::uint32_t offered, std::uint32_t used) {
    ResultLineAdded line;
    line.line_id = line_id;
    line.failed = failed;
    line.pings = pings;
    line.soundings_per_ping = soundings_per_ping;
    line.rejected_by_flag = rejected;
    line.offered = offered;
    line.used = used;
    return line;
  }
};

TEST_F(LineAccount, TellsTheSharesOfTheSoundings) {
  Printed("commit 1 2");
  LineIs(Line(0, 0, 1000, 100, 5000, 90000, 85000));
  client_.Deliver();
  EXPECT_THAT(Flushed(),
              ElementsAre("1 [M1] line 0 (a) completed [1000 pings of 100 soundings, 5.00% flagged "
                          "at input, 90.00% to grid, 85.00% accepted] (1 lines outstanding)"));
  LineIs(Line(1, 0, 3, 1, 1, 2, 1));
  client_.Deliver();
  EXPECT_THAT(Flushed(),
              ElementsAre("1 [M1] line 1 (b) completed [3 pings of 1 soundings, 33.33% flagged at "
                          "input, 66.67% to grid, 33.33% accepted] (0 lines outstanding)"));
}

TEST_F(LineAccount, OfNoSoundingsHasSharesOfZero) {
  Printed("commit 1 1");
  LineIs(Line(0, 0, 10, 0, 0, 0, 0));
  client_.Deliver();
  EXPECT_THAT(Flushed(),
              ElementsAre("1 [M1] line 0 (a) completed [10 pings of 0 soundings, 0.00% flagged at "
                          "input, 0.00% to grid, 0.00% accepted] (0 lines outstanding)"));
}

TEST_F(LineAccount, TheProductOfPingsAndSoundingsWraps) {
  Printed("commit 1 1");
  LineIs(Line(0, 0, 65536, 65537, 65536, 0, 0));
  client_.Deliver();
  EXPECT_THAT(
      Flushed(),
      ElementsAre("1 [M1] line 0 (a) completed [65536 pings of 65537 soundings, 100.00% "
                  "flagged at input, 0.00% to grid, 0.00% accepted] (0 lines outstanding)"));
}

TEST_F(LineAccount, WithoutStatisticsSaysSo) {
  Printed("commit 1 1");
  LineIs(Line(0, 0, 0, 0, 0, 0, 0));
  client_.Deliver();
  EXPECT_THAT(Flushed(), ElementsAre("1 [M1] line 0 (a) completed in background (no statistics "
                                     "available)."));
}

TEST_F(LineAccount, OfAFailedLineSaysSo) {
  Printed("commit 1 1");
  LineIs(Line(0, 1, 10, 10, 0, 0, 0));
  client_.Deliver();
  EXPECT_THAT(Flushed(), ElementsAre("1 [M1] line 0 (a) failed to complete."));
  EXPECT_EQ(State().pending_lines.Count(), 0U);
}

TEST_F(LineAccount, OfAnUnknownLineIsTold) {
  LineIs(Line(7, 1, 0, 0, 0, 0, 0));
  State().OnLineCompleted(SEResultToken());
  EXPECT_THAT(Flushed(), ElementsAre("1 error: received call-back for a non-existant line number!",
                                     "1 [M1] line 7 () failed to complete."));
}

TEST_F(LineAccount, ThatCannotBeFetchedLeavesTheLinePending) {
  Printed("commit 1 1");
  client_.result = []() -> SEBaseResult* { throw ExSGCNoGrid("gone"); };
  State().OnLineCompleted(SEResultToken());
  EXPECT_THAT(Flushed(), ElementsAre("1 error: server reported no grid was available for line."));
  client_.result = []() -> SEBaseResult* { throw ExSGCServerResources("full"); };
  State().OnLineCompleted(SEResultToken());
  EXPECT_THAT(Flushed(), ElementsAre("1 error: unexpected exception getting result (full)."));
  client_.result = []() -> SEBaseResult* { return nullptr; };
  State().OnLineCompleted(SEResultToken());
  EXPECT_THAT(Flushed(), ElementsAre("1 error: unexpected exception getting result ()."));
  EXPECT_EQ(State().pending_lines.Count(), 1U);
}

}  // namespace
}  // namespace quarro
