// Dispatch: words, counts, conditions, history.
#include "cli/command_processor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/command_fixture.h"

namespace quarro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class Dispatch : public CommandFixture {};

TEST_F(Dispatch, ACommentDoesNothingAndIsNotRecorded) {
  EXPECT_THAT(Printed("# help"), IsEmpty());
  EXPECT_THAT(State().history, IsEmpty());
}

TEST_F(Dispatch, ACommentAfterABlankIsRecordedAndUnknown) {
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>(" # help"), IsEmpty());
  EXPECT_THAT(State().history, ElementsAre(" # help"));
}

TEST_F(Dispatch, AnEmptyLineDoesNothing) {
  EXPECT_THAT(Printed(""), IsEmpty());
  EXPECT_THAT(State().history, IsEmpty());
}

TEST_F(Dispatch, ALineOfBlanksIsUnknownAndRecorded) {
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("   "), IsEmpty());
  EXPECT_THAT(State().history, ElementsAre("   "));
}

TEST_F(Dispatch, ExtraBlanksChangeNothing) {
  EXPECT_THAT(Printed("  history  "), ElementsAre("1 command history:", "1  [1]   history  "));
}

TEST_F(Dispatch, ATabBelongsToItsWord) {
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("history\t"), IsEmpty());
}

TEST_F(Dispatch, OtherCaseAndShortenedNamesAreUnknown) {
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("Help"), IsEmpty());
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("hel"), IsEmpty());
}

TEST_F(Dispatch, AWrongCountShowsTheSyntax) {
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("exit now"),
              ElementsAre("4 inappropriate number of parameters.", "4 syntax: exit|bye|quit"));
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("debug on"),
              ElementsAre("4 inappropriate number of parameters.",
                          "4 syntax: debug (on|off [everywhere]) [(at <x><y> | in <col><row> | "
                          "offset <dx><dy>)]"));
}

TEST_F(Dispatch, CountsAreCheckedBeforeEngineAndGrid) {
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("get depth"),
              ElementsAre("4 inappropriate number of parameters.",
                          "4 syntax: get <resulttype> <param> [<param>, ...]"));
  EXPECT_THAT(PrintedBefore<CommandProcessor::not_attached>("get depth low"), IsEmpty());
  PretendAttached();
  EXPECT_THAT(PrintedBefore<CommandProcessor::no_grid>("get depth low"), IsEmpty());
}

TEST_F(Dispatch, AliasesRunTheSameCommand) {
  EXPECT_THROW(processor_.Dispatch("quit"), CommandProcessor::cli_done);
  EXPECT_THROW(processor_.Dispatch("bye"), CommandProcessor::cli_done);
  Printed("inventory");
  Printed("broadcast");
  EXPECT_THAT(client_.calls, ElementsAre("FindEngines", "FindEngines"));
}

TEST_F(Dispatch, AliasesShareOneCommandInfo) {
  const auto& commands = processor_.Commands();
  EXPECT_THAT(commands, SizeIs(25));
  EXPECT_EQ(commands.at("broadcast").info, commands.at("inventory").info);
  EXPECT_EQ(commands.at("exit").info, commands.at("bye").info);
  EXPECT_NE(commands.at("exit").info, commands.at("help").info);
}

TEST_F(Dispatch, TheCommandTableHasTheseCountsAndConditions) {
  std::string table;
  for (const auto& [name, entry] : processor_.Commands()) {
    const CommandInfo& info = *entry.info;
    table += name + " " + std::to_string(info.min_params) + "-" + std::to_string(info.max_params) +
             (info.needs_attached ? " engine" : "") + (info.needs_grid ? " grid" : "") +
             (info.DetailHelp ? " detail" : "") + "\n";
  }
  EXPECT_EQ(table,
            "add 1-1 engine grid\n"
            "attach 1-1\n"
            "broadcast 0-0\n"
            "bye 0-0\n"
            "clear 0-2\n"
            "commit 2-3 engine grid\n"
            "debug 2-4 engine grid\n"
            "detach 0-0 engine\n"
            "drop 0-1 engine grid\n"
            "exit 0-0\n"
            "filelist 1-1\n"
            "get 2-50 engine grid detail\n"
            "grid 1-3 engine detail\n"
            "help 0-1\n"
            "history 0-0\n"
            "interval 1-2\n"
            "inventory 0-0\n"
            "purge 1-50 engine\n"
            "quit 0-0\n"
            "refine 0-1 engine grid\n"
            "set 1-5 detail\n"
            "show 1-1 detail\n"
            "source 1-1\n"
            "stress_test 0-0 engine\n"
            "synch 0-0 engine grid\n");
}

TEST_F(Dispatch, RefusedLinesAreRecorded) {
  PrintedBefore<CommandProcessor::bad_command>("nonsense");
  PrintedBefore<CommandProcessor::not_attached>("detach");
  EXPECT_THAT(State().history, ElementsAre("nonsense", "detach"));
}

TEST_F(Dispatch, TheHistoryHoldsTheLastFiftyLines) {
  for (int line = 1; line <= 50; ++line) {
    PrintedBefore<CommandProcessor::bad_command>("line" + std::to_string(line));
  }
  EXPECT_THAT(State().history, SizeIs(50));
  EXPECT_EQ(State().history.front(), "line1");
  PrintedBefore<CommandProcessor::bad_command>("line51");
  EXPECT_THAT(State().history, SizeIs(50));
  EXPECT_EQ(State().history.front(), "line2");
  EXPECT_EQ(State().history.back(), "line51");
}

TEST_F(Dispatch, AHistoryOfLengthZeroHoldsTheLineBeingRun) {
  State().history_length = 0;
  PrintedBefore<CommandProcessor::bad_command>("one");
  PrintedBefore<CommandProcessor::bad_command>("two");
  EXPECT_THAT(State().history, ElementsAre("two"));
}

class Prompt : public CommandFixture {};

TEST_F(Prompt, IsBareAtTheStart) { EXPECT_EQ(processor_.BuildPrompt(), ">> "); }

TEST_F(Prompt, ShowsGridAndDebugInBrackets) {
  State().grid_active = true;
  State().grid_name.Set("bay");
  State().debug_mode = true;
  EXPECT_EQ(processor_.BuildPrompt(), "[bay][DEBUG]>> ");
}

TEST_F(Prompt, ShowsTheHostOfTheAttachedEngineFirst) {
  PretendGrid("bay");
  const std::string prompt = processor_.BuildPrompt();
  EXPECT_THAT(prompt, testing::MatchesRegex("\\[[^]]+\\]\\[bay\\]>> "));
}

TEST(CommandProcessorVersion, IsFixed) {
  EXPECT_EQ(CommandProcessor::Version(), "V1.3, May 17 2017, 08:28:29");
}

}  // namespace
}  // namespace quarro
