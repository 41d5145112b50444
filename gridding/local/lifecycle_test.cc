// Attaching, grids, and what is refused, through the in-process engine.
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"

namespace quarro::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Lifecycle : public ::testing::Test {
 protected:
  FreshDirectory directory_;
  SGDebugClient client_{ParametersFor(directory_.path())};
  EngineLog log_;
};

TEST_F(Lifecycle, TheOneEngineIsInProcess) {
  const auto engines = client_.FindEngines();
  ASSERT_EQ(engines.size(), 1U);
  EXPECT_EQ(engines[0].protocol_version, 1U);
  EXPECT_EQ(engines[0].engine_version, 0x00010001U);
  EXPECT_EQ(engines[0].threads, 2U);
  EXPECT_EQ(engines[0].port, 0U);
  EXPECT_EQ(engines[0].ipv4_address, 0x7f000001U);
}

TEST_F(Lifecycle, AnotherEngineCannotBeAttached) {
  QuarroSpec other = client_.FindEngines().front();
  other.port = 4520;
  EXPECT_THROW(client_.AttachEngine(other), ExSGClientBase);
}

TEST_F(Lifecycle, OperationsWhoseExceptionsAreCaughtThrowWithoutAnEngine) {
  EXPECT_EQ(ReasonOf([&] { client_.DetachEngine(); }), "no engine is attached");
  EXPECT_EQ(ReasonOf([&] { client_.ConstructGrid("g", 10, 1, {}); }), "no engine is attached");
  EXPECT_EQ(ReasonOf([&] { client_.LoadGrid("g", {}); }), "no engine is attached");
  EXPECT_EQ(ReasonOf([&] { client_.AddLine("a", 0, false, {}); }), "no engine is attached");
  EXPECT_EQ(ReasonOf([&] {
              client_.RequestDepth({0, 0, 1, 1}, 0, 0, {});
            }),
            "no engine is attached");
  EXPECT_EQ(ReasonOf([&] {
              client_.RequestHypotheses({0, 0, 1, 1}, 0, 0, {});
            }),
            "no engine is attached");
  EXPECT_EQ(ReasonOf([&] {
              client_.RequestResolution({0, 0, 1, 1}, 0, {});
            }),
            "no engine is attached");
  EXPECT_FALSE(client_.SetRemoteLogLevel(3));
}

TEST_F(Lifecycle, TheOthersFailThroughACallBackThatHasReturned) {
  int calls = 0;
  const ResultCallback done = [&](const SEResultToken& token) {
    ++calls;
    EXPECT_EQ(ReasonOf([&] { client_.GetResult(token); }), "no engine is attached");
  };
  client_.DropGrid(false, done);
  client_.SynchGrid(done);
  client_.RefineGrid(1, done);
  client_.RequestQuery(1, done);
  client_.DebugAt(1, 2, true, done);
  client_.DebugCell(1, 2, true, done);
  client_.DebugOffEverywhere(done);
  client_.PurgeResults({1}, done);
  client_.Purge(done);
  client_.RequestServerStatistics(done);
  EXPECT_EQ(calls, 10);
}

TEST_F(Lifecycle, WithoutAGridTheRequestsThatNeedOneFailForIt) {
  Attach(client_);
  EXPECT_THROW(Drop(client_), ExSGCNoGrid);
  EXPECT_THROW(Synch(client_), ExSGCNoGrid);
  EXPECT_THROW(Refine(client_), ExSGCNoGrid);
  EXPECT_THROW(Query(client_, 1), ExSGCNoGrid);
  EXPECT_THROW(GridBounds(client_), ExSGCNoGrid);
  EXPECT_THROW(Depth(client_, {0, 0, 10, 10}), ExSGCNoGrid);
  EXPECT_THROW(Hypotheses(client_, {0, 0, 10, 10}), ExSGCNoGrid);
  EXPECT_THROW(Resolution(client_, {0, 0, 10, 10}), ExSGCNoGrid);
  EXPECT_THROW(Await<ResultDebug>(
                   client_, [&](const ResultCallback& done) { client_.DebugAt(0, 0, true, done); }),
               ExSGCNoGrid);
}

TEST_F(Lifecycle, ResolutionsThatMakeNoGridAreRefused) {
  Attach(client_);
  const float nan = std::nanf("");
  EXPECT_THAT(ReasonOf([&] { Construct(client_, "g", nan, 1); }), HasSubstr("finite"));
  EXPECT_THAT(ReasonOf([&] { Construct(client_, "g", HUGE_VALF, 1); }), HasSubstr("finite"));
  EXPECT_THAT(ReasonOf([&] { Construct(client_, "g", 0, 0); }), HasSubstr("above 0"));
  EXPECT_THAT(ReasonOf([&] { Construct(client_, "g", 10, -1); }), HasSubstr("above 0"));
  EXPECT_THAT(ReasonOf([&] { Construct(client_, "g", 1, 2); }),
              HasSubstr("the minimum must not be above the resolution"));
}

TEST_F(Lifecycle, ANameThatIsNoNameFails) {
  Attach(client_);
  EXPECT_THROW(Construct(client_, "../g"), ExSGClientBase);
  EXPECT_THROW(Load(client_, "g"), ExSGClientBase);
}

TEST_F(Lifecycle, AGridThatCannotBeOpenedLeavesTheCurrentOne) {
  Attach(client_);
  Construct(client_, "g");
  EXPECT_THROW(Load(client_, "none"), ExSGClientBase);
  EXPECT_THROW(Construct(client_, "a/b"), ExSGClientBase);
  EXPECT_EQ(Query(client_, 1).front(), "name: g");
}

TEST_F(Lifecycle, AGridUnderANameInUseSetsTheOldOneAside) {
  Attach(client_);
  WriteStrip(directory_ / "a.xyz", {});
  Construct(client_, "g");
  Add(client_, directory_ / "a.xyz");
  const std::string before = AllResults(client_);
  Construct(client_, "g", 5.0F);
  EXPECT_EQ(GridBounds(client_), SGBoundingBox());
  const std::string text = log_.Text();
  const std::string warning = "3 there was a grid \"g\": it is kept as \"";
  ASSERT_THAT(text, HasSubstr(warning));
  const std::size_t begin = text.find(warning) + warning.size();
  Load(client_, text.substr(begin, text.find('"', begin) - begin));
  EXPECT_EQ(AllResults(client_), before);
}

TEST_F(Lifecycle, AGridLoadedByAnotherFrontEndGivesTheSameResults) {
  Attach(client_);
  WriteStrip(directory_ / "a.xyz", {});
  Construct(client_, "g");
  Add(client_, directory_ / "a.xyz");
  Refine(client_);
  const std::string before = AllResults(client_);
  const SGBoundingBox bounds = GridBounds(client_);
  client_.DetachEngine();
  SGDebugClient other(ParametersFor(directory_.path()));
  Attach(other);
  EXPECT_EQ(Load(other, "g")->bounds, bounds);
  EXPECT_EQ(AllResults(other), before);
}

TEST_F(Lifecycle, TheCurrentGridCanBeLoadedAgain) {
  Attach(client_);
  WriteStrip(directory_ / "a.xyz", {});
  Construct(client_, "g");
  Add(client_, directory_ / "a.xyz");
  const std::string before = AllResults(client_);
  EXPECT_EQ(Load(client_, "g")->bounds, GridBounds(client_));
  EXPECT_EQ(AllResults(client_), before);
}

TEST_F(Lifecycle, ADroppedGridIsClosedAndKept) {
  Attach(client_);
  Construct(client_, "g");
  Drop(client_);
  SGDebugClient other(ParametersFor(directory_.path()));
  Attach(other);
  EXPECT_NO_THROW(Load(other, "g"));
  EXPECT_THROW(Load(client_, "g"), ExSGClientBase) << "in use by the other";
}

TEST_F(Lifecycle, DetachingCompletesWhatWasAskedFor) {
  Attach(client_);
  Construct(client_, "g");
  Replies replies;
  for (unsigned i = 0; i < 3; ++i) {
    const std::string path = directory_ / (std::to_string(i) + ".xyz");
    WriteStrip(path, {.seed = i + 1});
    client_.AddLine(path, i, false, replies.Expect("line"));
  }
  client_.RefineGrid(0, replies.Expect("refine"));
  client_.DetachEngine();
  EXPECT_THAT(replies.Names(), ElementsAre("line", "line", "line", "refine"));
  for (const SEResultToken& token : replies.Tokens()) {
    EXPECT_NO_THROW(std::unique_ptr<SEBaseResult>(client_.GetResult(token)));
  }
  Attach(client_);
  Load(client_, "g");
  EXPECT_THAT(Query(client_, 1), ::testing::Contains("lines: 3"));
}

TEST_F(Lifecycle, DestroyingAFrontEndLeavesNoCallBackPending) {
  Replies replies;
  {
    SGDebugClient client(ParametersFor(directory_.path()));
    Attach(client);
    client.ConstructGrid("g", 10, 1, replies.Expect("grid"));
    WriteStrip(directory_ / "a.xyz", {});
    client.AddLine(directory_ / "a.xyz", 0, false, replies.Expect("line"));
  }
  EXPECT_THAT(replies.Names(), ElementsAre("grid", "line"));
}

TEST_F(Lifecycle, ACallBackCannotDetach) {
  Attach(client_);
  std::promise<std::string> reason;
  client_.RequestServerStatistics(
      [&](const SEResultToken&) { reason.set_value(ReasonOf([&] { client_.DetachEngine(); })); });
  EXPECT_THAT(reason.get_future().get(), HasSubstr("by a call-back"));
}

TEST_F(Lifecycle, DetachingFinishesWhatCallBacksAskForMeanwhile) {
  WriteStrip(directory_ / "a.xyz", {});
  WriteStrip(directory_ / "b.xyz", {.seed = 2});
  Attach(client_);
  Construct(client_, "g");
  Replies replies;
  const ResultCallback first = replies.Expect("first");
  const ResultCallback second = replies.Expect("second");
  const ResultCallback depth = replies.Expect("depth");
  std::promise<void> detaching;
  client_.AddLine(directory_ / "a.xyz", 0, false, [&](const SEResultToken& token) {
    detaching.get_future().wait();
    client_.AddLine(directory_ / "b.xyz", 1, false, [&](const SEResultToken& added) {
      EXPECT_EQ(FetchResult<ResultLineAdded>(client_, added)->failed, 0U);
      client_.RequestDepth({0, 0, 100, 30}, 0, 1, depth);
      second(added);
    });
    first(token);
  });
  detaching.set_value();
  client_.DetachEngine();
  EXPECT_THAT(replies.Names(), ::testing::UnorderedElementsAre("first", "second", "depth"));
  Attach(client_);
  Load(client_, "g");
  EXPECT_THAT(Query(client_, 1), ::testing::Contains("lines: 2"));
}

TEST_F(Lifecycle, DroppingAtOnceDoesNotWaitUntilTheLineInWorkHasBeenRead) {
  // A file whose reading alone would take longer than anyone waits for a test.
  constexpr std::uintmax_t kTebibyte = std::uintmax_t{1} << 40U;
  const std::string path = directory_ / "endless.gsf";
  WriteStrip(path, {});
  std::filesystem::resize_file(path, kTebibyte);
  Attach(client_);
  Construct(client_, "g");
  Replies replies;
  client_.AddLine(path, 0, false, replies.Expect("in work"));
  client_.AddLine(path, 1, false, replies.Expect("queued"));
  client_.DropGrid(true, replies.Expect("drop"));
  replies.Wait();
  EXPECT_THAT(replies.Names(), ElementsAre("in work", "queued", "drop"));
}

TEST_F(Lifecycle, AttachingAgainStartsAnew) {
  Attach(client_);
  Construct(client_, "g");
  Attach(client_);
  EXPECT_THROW(Query(client_, 1), ExSGCNoGrid);
  EXPECT_NO_THROW(Load(client_, "g"));
}

TEST_F(Lifecycle, AWorkingDirectoryThatIsNoneStopsTheAttachment) {
  SGDebugClient client(ParametersFor(directory_ / "none"));
  EXPECT_THAT(ReasonOf([&] { Attach(client); }), HasSubstr("WorkingDirectory"));
}

TEST(EngineParameters, AValueOutOfRangeIsRefusedAndAnUnknownKeyWarnedOf) {
  MParams params;
  params.Set("Engine", "Threads", "0");
  EXPECT_THAT(ReasonOf([&] { SGDebugClient client(params); }), HasSubstr("Threads"));
  params.Set("Engine", "Threads", "1");
  params.Set("Projection", "UTMZone", "61");
  EXPECT_THAT(ReasonOf([&] { SGDebugClient client(params); }), HasSubstr("UTMZone"));
  params.Set("Projection", "UTMZone", "-33");
  params.Set("Engine", "Thread", "1");
  const EngineLog log;
  const SGDebugClient client(params);
  EXPECT_THAT(log.Text(), HasSubstr("3 the parameter file holds the key \"Thread\""));
}

}  // namespace
}  // namespace quarro::testing
