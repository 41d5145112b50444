// grid, drop, synch and refine with their call-backs.
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/command_fixture.h"

namespace quarro {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr char kSending[] = "1 sending grid construction request to server (please wait).";

class Grid : public CommandFixture {
 protected:
  Grid() { PretendAttached(); }
};

TEST_F(Grid, IsCreatedWithTwoResolutions) {
  EXPECT_THAT(Printed("grid g1 10 1"), ElementsAre(kSending, "1 grid construction complete."));
  EXPECT_THAT(client_.calls, ElementsAre("ConstructGrid g1 10 1"));
  EXPECT_TRUE(State().grid_active);
  EXPECT_EQ(State().GridName(), "g1");
  EXPECT_THAT(Flushed(), ElementsAre("1 [M1] info: grid constructed OK."));
}

TEST_F(Grid, WaitsForNothingWhenTheCallBackComesFirst) {
  client_.answer = FakeFrontEnd::Answer::kAtOnce;
  EXPECT_THAT(Printed("grid g1 10 1"), Contains("1 grid construction complete."));
}

TEST_F(Grid, ReplacesTheNameOfTheCurrentGrid) {
  PretendGrid("old");
  Printed("grid new");
  EXPECT_EQ(State().GridName(), "new");
}

TEST_F(Grid, WithOneResolutionShowsTheHelp) {
  const Lines lines = PrintedBefore<CommandProcessor::bad_command>("grid g1 10");
  ASSERT_EQ(lines.size(), 8U);
  EXPECT_EQ(lines[0], "1 \tgrid <name>[<res><min. res.>]");
  EXPECT_THAT(client_.calls, IsEmpty());
}

TEST_F(Grid, WithWordsForResolutionsIsRefused) {
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("grid g1 ten 1"),
              ElementsAre("4 failed to covert parameters for command."));
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("grid g1 10 1m"),
              ElementsAre("4 failed to covert parameters for command."));
}

TEST_F(Grid, ThatTheEngineDoesNotAcceptEndsTheCommandNormally) {
  client_.refusal = [](const std::string&) { throw ExSGClientBase("bad name"); };
  EXPECT_THAT(Printed("grid g1"),
              ElementsAre(kSending, "4 failed to send command to server (bad name)."));
  EXPECT_FALSE(State().grid_active);
}

TEST_F(Grid, ThatTheEngineCannotMakeLeavesTheCurrentOne) {
  PretendGrid("old");
  client_.result = []() -> SEBaseResult* { throw ExSGCServerResources("full"); };
  EXPECT_THAT(Printed("grid g1 10 1"), ElementsAre(kSending, "1 error: grid construction failed.",
                                                   "4 grid construction failed."));
  EXPECT_EQ(State().GridName(), "old");
  client_.result = []() -> SEBaseResult* { throw ExSGCNoGrid("none such"); };
  EXPECT_THAT(Printed("grid g1"),
              ElementsAre(kSending, "1 error: unexpected exception getting result (none such).",
                          "4 grid construction failed."));
}

TEST_F(Grid, SaysThatItSendsBeforeTheRequestIsHandedOver) {
  Lines before;
  client_.answer = FakeFrontEnd::Answer::kAtOnce;
  client_.refusal = [&](const std::string&) { before = drain_->Take(); };
  EXPECT_THAT(Printed("grid g1 10 1"), ElementsAre("1 grid construction complete."));
  EXPECT_THAT(before, ElementsAre(kSending));
  EXPECT_THAT(Printed("grid g1"), ElementsAre("1 grid construction complete."));
  EXPECT_THAT(before, ElementsAre(kSending));
}

TEST_F(Grid, AnAnswerOfAnotherClassIsReportedWithoutText) {
  client_.result = [] { return new ResultQuery; };
  EXPECT_THAT(Printed("grid g1"),
              ElementsAre(kSending, "1 error: unexpected exception getting result ().",
                          "4 grid construction failed."));
}

TEST_F(Grid, AnUnforeseenFailureStillWakesTheConsole) {
  client_.result = []() -> SEBaseResult* { throw std::runtime_error("?"); };
  State().rendezvous.Reset();
  EXPECT_THROW(State().OnGridLoaded(SEResultToken()), std::runtime_error);
  EXPECT_FALSE(State().rendezvous.Wait());
}

class Reload : public Grid {
 protected:
  Reload() {
    client_.result = [] {
      auto loaded = std::make_unique<ResultGridLoaded>();
      loaded->bounds = SGBoundingBox(1, 2, 3, 4);
      return loaded.release();
    };
  }
};

TEST_F(Reload, KeepsTheBoxUnlessItFollowsTheGrid) {
  State().bbox.Set(SGBoundingBox(5, 6, 7, 8));
  Printed("grid g1");
  EXPECT_THAT(client_.calls, ElementsAre("LoadGrid g1"));
  EXPECT_EQ(State().bbox.Get(), SGBoundingBox(5, 6, 7, 8));
  EXPECT_THAT(Flushed(),
              ElementsAre("1 [M1] info: grid constructed with bounding box (1.000 2.000 3.000 "
                          "4.000)."));
}

TEST_F(Reload, ReplacesTheBoxThatFollowsTheGrid) {
  State().reset_bbox_on_load = true;
  Printed("grid g1");
  EXPECT_EQ(State().bbox.Get(), SGBoundingBox(1, 2, 3, 4));
}

// The request's line is printed after the request was handed over, so it may come on either side
// of what the call-back prints.
class GridWork : public CommandFixture {
 protected:
  GridWork() { PretendGrid(); }
};

constexpr char kDropping[] =
    "1 sending grid drop command (please wait for current lineset completion, if any).";
constexpr char kSynching[] =
    "1 sending grid synch command (please wait for current lineset completion, if any).";
constexpr char kRefining[] =
    "1 sending refine grid command (please wait for current lineset completion, if any).";

TEST_F(GridWork, DropGivesTheGridUp) {
  EXPECT_THAT(Printed("drop"), ElementsAre(kDropping, "1 grid dropped OK."));
  EXPECT_FALSE(State().grid_active);
  EXPECT_EQ(State().grid_name.Get(), "");
  EXPECT_THAT(client_.calls, ElementsAre("DropGrid 0"));
}

TEST_F(GridWork, DropAsapSaysSo) {
  Printed("drop asap");
  EXPECT_THAT(client_.calls, ElementsAre("DropGrid 1"));
}

TEST_F(GridWork, DropWithAnotherWordIsRefused) {
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("drop now"),
              ElementsAre("4 syntax: drop [asap]"));
  EXPECT_THAT(client_.calls, IsEmpty());
}

TEST_F(GridWork, DropThatFailsKeepsTheGrid) {
  client_.result = []() -> SEBaseResult* { throw ExSGCNoGrid(""); };
  EXPECT_THAT(Printed("drop"),
              UnorderedElementsAre(kDropping, "4 server reported no grid was available for line.",
                                   "4 failed to drop grid from server."));
  EXPECT_TRUE(State().grid_active);
}

TEST_F(GridWork, SynchReportsTheOutcome) {
  EXPECT_THAT(Printed("synch"), ElementsAre(kSynching, "1 grid synchronised OK."));
  client_.result = []() -> SEBaseResult* { throw ExSGCServerResources(""); };
  EXPECT_THAT(
      Printed("synch"),
      UnorderedElementsAre(kSynching, "4 server reports out of resources getting resolutions.",
                           "4 failed to synchronise grid on server."));
}

TEST_F(GridWork, RefineLeavesTheThreadsToTheEngine) {
  EXPECT_THAT(Printed("refine"), ElementsAre(kRefining, "1 grid refined OK."));
  Printed("refine 3");
  EXPECT_THAT(client_.calls, ElementsAre("RefineGrid 0", "RefineGrid 3"));
}

TEST_F(GridWork, RefineWithAWordIsRefused) {
  EXPECT_THAT(PrintedBefore<CommandProcessor::bad_command>("refine x"),
              ElementsAre("4 number of threads must be a positive integer."));
  EXPECT_THAT(client_.calls, IsEmpty());
}

TEST_F(GridWork, RefineReportsEveryKindOfFailure) {
  client_.result = []() -> SEBaseResult* { throw ExSGClientBase("disc"); };
  EXPECT_THAT(Printed("refine"),
              UnorderedElementsAre(kRefining, "4 unexpected exception getting result (disc).",
                                   "4 error: failed to refine grid on server."));
  client_.result = []() -> SEBaseResult* { throw std::runtime_error("?"); };
  EXPECT_THAT(
      Printed("refine"),
      UnorderedElementsAre(kRefining, "4 unknown exception in getting query result information.",
                           "4 error: failed to refine grid on server."));
}

TEST_F(GridWork, WhatTheFrontEndThrowsReachesTheConsoleLoop) {
  client_.refusal = [](const std::string&) { throw ExSGClientBase("lost"); };
  for (const std::string command : {"drop", "drop asap", "synch", "refine", "refine 3"}) {
    // The request was not handed over, so the line that says so is missing.
    EXPECT_THAT(PrintedBefore<ExSGClientBase>(command), IsEmpty()) << command;
  }
  EXPECT_TRUE(State().grid_active);
}

TEST_F(GridWork, SaysThatItSendsAfterTheRequestIsHandedOver) {
  client_.answer = FakeFrontEnd::Answer::kAtOnce;
  client_.result = []() -> SEBaseResult* { throw ExSGCNoGrid(""); };
  constexpr char kNoGrid[] = "4 server reported no grid was available for line.";
  EXPECT_THAT(Printed("drop"),
              ElementsAre(kNoGrid, kDropping, "4 failed to drop grid from server."));
  EXPECT_THAT(Printed("synch"),
              ElementsAre(kNoGrid, kSynching, "4 failed to synchronise grid on server."));
  EXPECT_THAT(Printed("refine"),
              ElementsAre(kNoGrid, kRefining, "4 error: failed to refine grid on server."));
}

// Tells when it is deleted.
template <typename Result>
class WatchedResult : public Result {
 public:
  explicit WatchedResult(int& deletions) : deletions_(deletions) {}
  WatchedResult(const WatchedResult&) = delete;
  WatchedResult& operator=(const WatchedResult&) = delete;
  ~WatchedResult() override { ++deletions_; }

 private:
  int& deletions_;
};

TEST_F(GridWork, DeletesTheResultWhetherOrNotItIsOfTheClassExpected) {
  for (const std::string command : {"grid g1", "grid g1 10 1", "drop", "synch", "refine"}) {
    PretendGrid();
    int deletions = 0;
    client_.result = [&] { return new WatchedResult<ResultQuery>(deletions); };
    EXPECT_THAT(Printed(command),
                Contains(testing::HasSubstr("unexpected exception getting result ().")));
    EXPECT_EQ(deletions, 1) << command;
    client_.result = [&] { return new WatchedResult<ResultGridLoaded>(deletions); };
    EXPECT_THAT(Printed(command), testing::Not(Contains(testing::HasSubstr("exception"))));
    EXPECT_EQ(deletions, 2) << command;
  }
}

}  // namespace
}  // namespace quarro
