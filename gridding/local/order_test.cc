// The order of call-backs, and what ends early.
#include <array>
#include <atomic>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"

namespace quarro::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class OrderOfWork : public ::testing::Test {
 protected:
  void SetUp() override {
    Attach(client_);
    Construct(client_, "g");
    for (unsigned i = 0; i < kLines; ++i) WriteStrip(LineFile(i), {.seed = i + 1});
  }
  std::string LineFile(unsigned i) const { return directory_ / (std::to_string(i) + ".xyz"); }

  static constexpr unsigned kLines = 4;
  FreshDirectory directory_;
  SGDebugClient client_{ParametersFor(directory_.path())};
  EngineLog log_;
};

TEST_F(OrderOfWork, LinesAndAcknowledgementsComeInTheOrderOfSubmission) {
  Replies replies;
  client_.AddLine(LineFile(0), 0, false, replies.Expect("line 0"));
  client_.AddLine(directory_ / "missing.xyz", 1, false, replies.Expect("line 1"));
  client_.RefineGrid(0, replies.Expect("refine"));
  client_.AddLine(LineFile(1), 2, false, replies.Expect("line 2"));
  client_.SynchGrid(replies.Expect("synch"));
  client_.DropGrid(false, replies.Expect("drop"));
  replies.Wait();
  EXPECT_THAT(replies.Names(),
              ElementsAre("line 0", "line 1", "refine", "line 2", "synch", "drop"));
}

TEST_F(OrderOfWork, ABarrierIsAcknowledgedAfterTheCallBacksOfAllEarlierRequestsReturned) {
  Add(client_, LineFile(0));
  Replies replies;
  std::promise<void> go_on;
  std::shared_future<void> may_go_on = go_on.get_future().share();
  const ResultCallback note = replies.Expect("depth returned");
  client_.RequestDepth(GridBounds(client_), 0, 1, [&, note](const SEResultToken& token) {
    may_go_on.wait();
    note(token);
  });
  client_.SynchGrid(replies.Expect("synch"));
  // A line behind the barrier is done before the call-back that the barrier waits for.
  std::promise<void> seen;
  client_.RequestQuery(2, [&](const SEResultToken&) { seen.set_value(); });
  seen.get_future().wait();
  EXPECT_THAT(replies.Names(), ElementsAre());
  go_on.set_value();
  replies.Wait();
  EXPECT_THAT(replies.Names(), ElementsAre("depth returned", "synch"));
}

TEST_F(OrderOfWork, AResultIsOfTheGridAsItWasWhenAskedFor) {
  const SGBoundingBox box(0, 0, 100, 30);
  const std::string before = TextOf(*Depth(client_, box));
  Replies replies;
  client_.AddLine(LineFile(0), 0, false, replies.Expect());
  client_.RequestDepth(box, 0, 1, replies.Expect());
  replies.Wait();
  // Asked for right behind the line, the depth may or may not hold it, but nothing in between.
  const std::string after = TextOf(*Depth(client_, box));
  for (const SEResultToken& token : replies.Tokens()) {
    std::unique_ptr<SEBaseResult> result(client_.GetResult(token));
    if (const auto* depth = dynamic_cast<ResultDepth*>(result.get())) {
      const std::string text = TextOf(*depth);
      EXPECT_TRUE(text == before || text == after);
    }
  }
  EXPECT_NE(before, after);
}

TEST_F(OrderOfWork, WhatEscapesACallBackIsLoggedAndTheThreadLivesOn) {
  Replies replies;
  const ResultCallback note = replies.Expect("threw");
  client_.SynchGrid([&, note](const SEResultToken& token) {
    note(token);
    throw std::runtime_error("the console broke");
  });
  client_.SynchGrid(replies.Expect("synch"));
  replies.Wait();
  EXPECT_THAT(replies.Names(), ElementsAre("threw", "synch"));
  EXPECT_THAT(log_.Text(), HasSubstr("4 a call-back for a synch request threw: the console broke"));
}

TEST_F(OrderOfWork, DroppingAtOnceFailsWhatIsQueuedAndKeepsWhatIsDone) {
  Add(client_, LineFile(0));
  Replies replies;
  std::atomic<int> failed = 0;
  for (unsigned i = 1; i < kLines; ++i) {
    const ResultCallback note = replies.Expect("line");
    client_.AddLine(LineFile(i), i, false, [&, note](const SEResultToken& token) {
      failed += FetchResult<ResultLineAdded>(client_, token)->failed != 0 ? 1 : 0;
      note(token);
    });
  }
  client_.RefineGrid(0, replies.Expect("refine"));
  client_.DropGrid(true, replies.Expect("drop"));
  replies.Wait();
  EXPECT_THAT(replies.Names(), ElementsAre("line", "line", "line", "refine", "drop"));
  EXPECT_GE(failed, 2) << "lines that were queued";
  const auto tokens = replies.Tokens();
  EXPECT_THAT(ReasonOf([&] { client_.GetResult(tokens[3]); }), HasSubstr("dropped at once"));
  Load(client_, "g");
  EXPECT_THAT(Query(client_, 1), ::testing::Contains("lines: " + std::to_string(4 - failed)));
}

TEST_F(OrderOfWork, DroppingAtOnceFailsResultsWhoseCallBackHasNotBegun) {
  Add(client_, LineFile(0));
  const SGBoundingBox bounds = GridBounds(client_);
  std::promise<void> go_on;
  std::shared_future<void> may_go_on = go_on.get_future().share();
  Replies replies;
  // Both threads of result call-backs are held up, so that the third depth waits for one.
  std::array<std::promise<void>, 2> begun;
  for (auto& promise : begun) {
    const ResultCallback note = replies.Expect("held");
    client_.RequestDepth(bounds, 0, 0, [&, note](const SEResultToken& token) {
      EXPECT_NO_THROW(FetchResult<ResultDepth>(client_, token));
      promise.set_value();
      may_go_on.wait();
      note(token);
    });
  }
  for (auto& promise : begun) promise.get_future().wait();
  const ResultCallback note = replies.Expect("waiting");
  client_.RequestDepth(bounds, 1, 0, [&, note](const SEResultToken& token) {
    EXPECT_THAT(ReasonOf([&] { client_.GetResult(token); }), HasSubstr("dropped at once"));
    note(token);
  });
  client_.DropGrid(true, replies.Expect("drop"));
  go_on.set_value();
  replies.Wait();
  EXPECT_THAT(replies.Names(), ::testing::UnorderedElementsAre("held", "held", "waiting", "drop"));
  EXPECT_EQ(replies.Names().back(), "drop");
}

TEST_F(OrderOfWork, EveryRequestGetsExactlyOneCallBack) {
  Replies replies;
  int asked = 0;
  const auto expect = [&] {
    ++asked;
    return replies.Expect();
  };
  for (unsigned i = 0; i < kLines; ++i) {
    client_.AddLine(LineFile(i), i, i == 2, expect());
    client_.RequestDepth({0, 0, 100, 30}, i, 1, expect());
    client_.RequestHypotheses({0, 0, 100, 30}, i, 1, expect());
    client_.RequestResolution({0.1, 0.1, 0.2, 0.2}, i, expect());
    client_.RequestQuery(i + 1, expect());
    client_.RequestQuery(77, expect());
    client_.RequestServerStatistics(expect());
    client_.DebugAt(10, 10, i % 2 == 0, expect());
    client_.PurgeResults({i}, expect());
    client_.RefineGrid(1, expect());
  }
  client_.DetachEngine();
  EXPECT_EQ(replies.Names().size(), static_cast<std::size_t>(asked));
}

}  // namespace
}  // namespace quarro::testing
