// help, history, source and exit.
#include <iostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/command_fixture.h"

namespace quarro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Help : public CommandFixture {};

TEST_F(Help, ListsEveryCommandOnceInByteOrder) {
  const Lines lines = Printed("help");
  Lines syntaxes;
  for (std::size_t i = 1; i < lines.size(); i += 2) {
    syntaxes.push_back(lines[i]);
  }
  EXPECT_EQ(lines[0], "1 Available commands:");
  EXPECT_THAT(
      syntaxes,
      ElementsAre(
          "1 \tadd <linenum>", "1 \tattach <server>", "1 \tbroadcast|inventory",
          "1 \texit|bye|quit", "1 \tclear [<start><end>]", "1 \tcommit <start><end> [rendezvous]",
          "1 \tdebug (on|off [everywhere]) [(at <x><y> | in <col><row> | offset "
          "<dx><dy>)]",
          "1 \tdetach", "1 \tdrop [asap]", "1 \tfilelist <filename>",
          "1 \tget <resulttype> <param> [<param>, ...]", "1 \tgrid <name>[<res><min. res.>]",
          "1 \thelp [<command name>]", "1 \thistory", "1 \tinterval start|stop [log]",
          "1 \tpurge all|UID [UID ...]", "1 \trefine [<n_threads>]", "1 \tset <variable> [<value>]",
          "1 \tshow <variable>", "1 \tsource <file>", "1 \tstress_test", "1 \tsynch"));
  EXPECT_EQ(lines[2], "1 \t\tAdd a line to the current grid");
}

TEST_F(Help, OfANameWithAliasesShowsTheSharedSyntax) {
  EXPECT_THAT(Printed("help bye"),
              ElementsAre("1 \texit|bye|quit",
                          "1 \t\tExit from client application (detaching if required)"));
}

TEST_F(Help, OfGridGoesOnWithItsExtendedHelp) {
  EXPECT_THAT(
      Printed("help grid"),
      ElementsAre("1 \tgrid <name>[<res><min. res.>]", "1 \t\tLoad a grid, or create one ab initio",
                  "1 ",
                  "1 \tTwo variants are allowed: reloading an extant grid, and creating a new one.",
                  "1 info:\tWithout extra parameters, an extant grid is reloaded from the current "
                  "working directory of the server;",
                  "1 \twith extra parameters a new grid is created.  Parameters should be bounds "
                  "in a projected coordinate",
                  "1 \tsystem.  The <res> parameter is the dimension for the low-resolution "
                  "SuperGrid, while <min. res.>",
                  "1 \tis the minimum resolution to which the SuperGrid is to be refined."));
}

TEST_F(Help, OfAnUnknownNamePrintsAPointerAndFails) {
  testing::internal::CaptureStdout();
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("help nonsense"), IsEmpty());
  std::cout.flush();
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              testing::MatchesRegex("error: command \"nonsense\" is not recognised\\.0x[0-9a-f]+"));
}

class History : public CommandFixture {};

TEST_F(History, NumbersLinesFromOneAndIncludesItself) {
  PrintedBefore<CommandProcessor::bad_command>("nonsense");
  EXPECT_THAT(Printed("history"),
              ElementsAre("1 command history:", "1  [1] nonsense", "1  [2] history"));
}

class Source : public CommandFixture {};

TEST_F(Source, EchoesLinesWithNumbersAndSkipsEmptyOnes) {
  const std::string path = File("commands", "# a comment\n\nclear\nfilelist /nowhere");
  EXPECT_THAT(
      PrintedBefore<CommandProcessor::bad_command>("source " + path),
      ElementsAre("1 [C1] # a comment", "1 [C2] clear", "1 all lines removed from file list.",
                  "1 [C3] filelist /nowhere", "4 can't open \"/nowhere\" for input."));
  EXPECT_THAT(State().history, ElementsAre("source " + path, "clear", "filelist /nowhere"));
}

TEST_F(Source, RunsALastLineWithoutNewline) {
  EXPECT_THAT(Printed("source " + File("commands", "clear")),
              ElementsAre("1 [C1] clear", "1 all lines removed from file list."));
  EXPECT_FALSE(State().sourcing);
}

TEST_F(Source, RefusesAMissingFileAndADirectory) {
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("source /nowhere"),
              ElementsAre("4 could not open \"/nowhere\" for input."));
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("source /"),
              ElementsAre("4 could not open \"/\" for input."));
}

TEST_F(Source, GoesOnWithTheOuterFileAfterAnInnerOne) {
  const std::string inner = File("inner", "clear\n");
  const std::string outer = File("outer", "source " + inner + "\nclear\n");
  EXPECT_THAT(
      Printed("source " + outer),
      ElementsAre("1 [C1] source " + inner, "1 [C1] clear", "1 all lines removed from file list.",
                  "1 [C2] clear", "1 all lines removed from file list."));
}

TEST_F(Source, CountsAsOverOnceAnInnerFileHasEnded) {
  std::vector<bool> sourcing;
  client_.refusal = [&](const std::string&) { sourcing.push_back(State().sourcing); };
  const std::string inner = File("inner", "broadcast\n");
  Printed("source " + File("outer", "broadcast\nsource " + inner + "\nbroadcast\n"));
  EXPECT_THAT(sourcing, ElementsAre(true, true, false));
  EXPECT_FALSE(State().sourcing);
}

TEST_F(Source, AFileThatCannotBeReadFailsTheCommand) {
  // It opens, and its first byte, at an address that is never mapped, cannot be read.
  const std::string path = "/proc/self/mem";
  if (!std::ifstream(path).is_open()) {
    GTEST_SKIP() << path << " cannot be opened here";
  }
  EXPECT_THAT(
      PrintedBefore<CommandProcessor::cmd_failed>("source " + path),
      ElementsAre("4 reading \"" + path + "\" failed after line 0; the rest of it was not run."));
  EXPECT_FALSE(State().sourcing);
}

TEST_F(Source, AnErrorStopsTheWholeChain) {
  const std::string inner = File("inner", "nonsense\nclear\n");
  const std::string outer = File("outer", "source " + inner + "\nclear\n");
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("source " + outer),
              ElementsAre("1 [C1] source " + inner, "1 [C1] nonsense"));
  EXPECT_FALSE(State().sourcing);
}

TEST_F(Source, ExitInAFileEndsTheProgram) {
  const std::string path = File("commands", "exit\nclear\n");
  EXPECT_THAT(PrintedBefore<CommandProcessor::cli_done>("source " + path),
              ElementsAre("1 [C1] exit"));
  EXPECT_FALSE(State().sourcing);
}

TEST_F(Source, ShowsPostedMessagesAfterEachLine) {
  PretendAttached();
  const std::string path = File("commands", "grid g1 10 1\nclear\n");
  EXPECT_THAT(Printed("source " + path),
              ElementsAre("1 [C1] grid g1 10 1",
                          "1 sending grid construction request to server (please wait).",
                          "1 grid construction complete.", "1 [M1] info: grid constructed OK.",
                          "1 [C2] clear", "1 all lines removed from file list."));
}

}  // namespace
}  // namespace quarro
