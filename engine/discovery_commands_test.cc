// broadcast, attach and detach.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/command_fixture.h"

namespace quarro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class Discovery : public CommandFixture {
 protected:
  void Know(std::size_t count) {
    State().engines.assign(count, QuarroSpec{1, 0x10001, 8, 4520, 1});
  }
};

TEST_F(Discovery, CountsTheEnginesFound) {
  client_.engines.resize(2);
  EXPECT_THAT(
      Printed("broadcast"),
      ElementsAre("1 searching for computational engines on the local network (please wait).",
                  "1 found 2 computational engines on local network."));
  EXPECT_THAT(State().engines, SizeIs(2));
}

TEST_F(Discovery, ThatFindsNothingEmptiesTheList) {
  Know(3);
  EXPECT_THAT(
      Printed("inventory"),
      ElementsAre("1 searching for computational engines on the local network (please wait).",
                  "3 no clients found."));
  EXPECT_THAT(State().engines, IsEmpty());
}

TEST_F(Discovery, ThatFailsFailsTheCommandAndEmptiesTheList) {
  Know(3);
  client_.refusal = [](const std::string&) { throw ExSGClientBase("no route"); };
  EXPECT_THAT(
      PrintedBefore<CommandProcessor::cmd_failed>("broadcast"),
      ElementsAre("1 searching for computational engines on the local network (please wait).",
                  "4 exception from client code (no route).  Command failed."));
  EXPECT_THAT(State().engines, IsEmpty());
}

TEST_F(Discovery, LeavesAnAttachmentAlone) {
  Know(2);
  Printed("attach 2");
  Printed("broadcast");
  EXPECT_TRUE(State().attached);
  EXPECT_EQ(State().engine_index, 1);
}

class Attach : public Discovery {};

TEST_F(Attach, BeforeAnyDiscoveryIsOutOfRange) {
  EXPECT_THAT(Printed("attach 1"), ElementsAre("4 only 0 engines known; can't select 1."));
  EXPECT_FALSE(State().attached);
}

TEST_F(Attach, ZeroCannotBeSelected) {
  EXPECT_THAT(Printed("attach 0"), ElementsAre("4 can't select engine 0!"));
}

TEST_F(Attach, ANegativeNumberWrapsOutOfRange) {
  Know(3);
  EXPECT_THAT(Printed("attach -1"),
              ElementsAre("4 only 3 engines known; can't select 4294967295."));
}

TEST_F(Attach, ALeadingPlusIsAccepted) {
  Know(3);
  State().engines[1].port = 4521;
  EXPECT_THAT(
      Printed("attach +2"),
      ElementsAre("1 sending engine commit request to engine 2 (please wait).", "1 attached OK."));
  EXPECT_TRUE(State().attached);
  EXPECT_EQ(State().engine_index, 1);
  EXPECT_THAT(client_.calls,
              ElementsAre("AttachEngine 0.0.0.1:4521, 8 threads, engine 1.1, protocol 1"));
}

TEST_F(Attach, AWordThatIsNoNumberShowsTheHelp) {
  Know(3);
  EXPECT_THAT(
      PrintedBefore<CommandProcessor::bad_command>("attach two"),
      ElementsAre("4 can't convert \"two\" to number for engine attach.", "1 \tattach <server>",
                  "1 \t\tAttach to a server for computation resources"));
  EXPECT_THAT(State().history, ElementsAre("attach two", "help attach"));
  PrintedBefore<CommandProcessor::bad_command>("attach 1.5");
  PrintedBefore<CommandProcessor::bad_command>("attach 4294967296");
}

TEST_F(Attach, WhileAttachedIsRefused) {
  PretendAttached();
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("attach 1"),
              ElementsAre("4 you are already attached (use 'detach' first)."));
}

TEST_F(Attach, WhileAttachedIsRefusedThoughTheListHasChanged) {
  const auto refusal = ElementsAre("4 you are already attached (use 'detach' first).");
  Know(1);
  Printed("attach 1");
  client_.engines = {QuarroSpec{1, 0x10001, 4, 4600, 2}, QuarroSpec{1, 0x10001, 8, 4520, 1}};
  Printed("broadcast");
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("attach 1"), refusal);
  client_.engines.clear();
  Printed("broadcast");
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("attach 1"), refusal);
  EXPECT_THAT(client_.calls,
              ElementsAre("AttachEngine 0.0.0.1:4520, 8 threads, engine 1.1, protocol 1",
                          "FindEngines", "FindEngines"));
  EXPECT_TRUE(State().attached);
  EXPECT_EQ(State().engine_index, 0);
}

TEST_F(Attach, ThatTheEngineRefusesEndsNormally) {
  Know(1);
  client_.refusal = [](const std::string&) { throw ExSGClientBase("busy"); };
  EXPECT_THAT(Printed("attach 1"),
              ElementsAre("1 sending engine commit request to engine 1 (please wait).",
                          "4 failed to attach (busy)."));
  EXPECT_FALSE(State().attached);
  EXPECT_EQ(State().engine_index, -1);
}

class Detach : public CommandFixture {};

TEST_F(Detach, ClearsEngineAndGridAndLeavesTheRest) {
  PretendGrid();
  State().filelist = {"a"};
  State().pending_lines.Add(0, "b");
  EXPECT_THAT(Printed("detach"), ElementsAre("1 sending engine detach command.", "1 detached OK."));
  EXPECT_EQ(processor_.BuildPrompt(), ">> ");
  EXPECT_FALSE(State().grid_active);
  EXPECT_EQ(State().grid_name.Get(), "");
  EXPECT_EQ(State().engine_index, -1);
  EXPECT_THAT(State().filelist, ElementsAre("a"));
  EXPECT_EQ(State().pending_lines.Count(), 1U);
}

TEST_F(Detach, ThatFailsLeavesTheStateUnchanged) {
  PretendGrid();
  client_.refusal = [](const std::string&) { throw ExSGClientBase("lost"); };
  EXPECT_THAT(Printed("detach"),
              ElementsAre("1 sending engine detach command.", "4 failed to detach (lost)."));
  EXPECT_TRUE(State().attached);
  EXPECT_TRUE(State().grid_active);
  EXPECT_EQ(State().engine_index, 0);
}

}  // namespace
}  // namespace quarro
