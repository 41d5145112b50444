#include "gridding/remote/super_grid_client.h"

#include <functional>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"

namespace quarro::testing {
namespace {

using ::testing::HasSubstr;

class WithoutEngine : public ::testing::Test {
 protected:
  // Why a request that was accepted failed; its call-back has run once when `ask` returns.
  std::string FailureOf(const std::function<void(const ResultCallback&)>& ask) {
    int calls = 0;
    std::string reason;
    bool on_own_thread = false;
    ask([&](const SEResultToken& token) {
      ++calls;
      on_own_thread = std::this_thread::get_id() != test_thread_;
      reason = ReasonOf([&] { client_.GetResult(token); });
      EXPECT_THAT(ReasonOf([&] { client_.GetResult(token); }), HasSubstr("no result waits"));
    });
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(on_own_thread);
    return reason;
  }

  // Of a discovery that no server answers.
  static MParams Parameters() {
    MParams params;
    params.Set("Network", "DiscoveryPort", "47697");
    params.Set("Network", "DiscoveryWaitMs", "50");
    return params;
  }

  const std::thread::id test_thread_ = std::this_thread::get_id();
  EngineLog log_;
  SuperGridClient client_{Parameters()};
  int calls_ = 0;
  const ResultCallback never_ = [this](const SEResultToken&) { ++calls_; };
};

constexpr const char* kNotAttached = "no engine is attached";

TEST_F(WithoutEngine, NoneIsFound) {
  EXPECT_TRUE(client_.FindEngines().empty());
  EXPECT_TRUE(client_.FindEngines().empty());
}

TEST_F(WithoutEngine, ListedEnginesThatDoNotAnswerAreNamedAtALevelThatIsSeenByDefault) {
  MParams params = Parameters();
  params.Set("Network", "Engines", "127.0.0.1:1 no_such_host.invalid");
  EXPECT_TRUE(SuperGridClient(params).FindEngines().empty());
  EXPECT_THAT(log_.Text(), HasSubstr("4 no answer from 127.0.0.1:1 of Engines: is it up, and UDP "
                                     "and TCP of that port let through?\n"));
  EXPECT_THAT(log_.Text(), HasSubstr("4 parameter Network/Engines: the host "
                                     "\"no_such_host.invalid\" has no IPv4 address"));
}

TEST_F(WithoutEngine, AttachingFailsNamingTheEngineAndDetachingFails) {
  const QuarroSpec spec{.protocol_version = 1,
                        .engine_version = (1U << 16U) | 1U,
                        .threads = 8,
                        .port = 1,
                        .ipv4_address = 0x7f000001};
  EXPECT_THAT(ReasonOf([&] { client_.AttachEngine(spec); }),
              HasSubstr("the engine at 127.0.0.1:1, 8 threads, engine 1.1, protocol 1: cannot be "
                        "reached"));
  EXPECT_EQ(ReasonOf([&] { client_.DetachEngine(); }), kNotAttached);
}

TEST_F(WithoutEngine, TheRemoteLogLevelCannotBeSet) {
  EXPECT_FALSE(client_.SetRemoteLogLevel(0));
  EXPECT_FALSE(client_.SetRemoteLogLevel(4));
  EXPECT_EQ(client_.Log().Filter(), 0) << "the channel keeps its own level";
}

TEST_F(WithoutEngine, WhatThrowsForAFailureThrowsAndCallsNobody) {
  const SGBoundingBox box(0, 0, 10, 10);
  EXPECT_EQ(ReasonOf([&] { client_.ConstructGrid("g", 10, 1, never_); }), kNotAttached);
  EXPECT_EQ(ReasonOf([&] { client_.LoadGrid("g", never_); }), kNotAttached);
  EXPECT_EQ(ReasonOf([&] { client_.AddLine("a.gsf", 1, true, never_); }), kNotAttached);
  EXPECT_EQ(ReasonOf([&] { client_.RequestResolution(box, 1, never_); }), kNotAttached);
  EXPECT_EQ(ReasonOf([&] { client_.RequestDepth(box, 1, 1, never_); }), kNotAttached);
  EXPECT_EQ(ReasonOf([&] { client_.RequestHypotheses(box, 1, 1, never_); }), kNotAttached);
  EXPECT_EQ(calls_, 0);
}

TEST_F(WithoutEngine, DropSynchAndRefineFailThroughTheirCallBack) {
  EXPECT_EQ(FailureOf([&](const auto& done) { client_.DropGrid(false, done); }), kNotAttached);
  EXPECT_EQ(FailureOf([&](const auto& done) { client_.DropGrid(true, done); }), kNotAttached);
  EXPECT_EQ(FailureOf([&](const auto& done) { client_.SynchGrid(done); }), kNotAttached);
  EXPECT_EQ(FailureOf([&](const auto& done) { client_.RefineGrid(2, done); }), kNotAttached);
}

TEST_F(WithoutEngine, QueriesAndStatisticsFailThroughTheirCallBack) {
  for (std::uint32_t kind = 1; kind <= 5; ++kind) {
    EXPECT_EQ(FailureOf([&](const auto& done) { client_.RequestQuery(kind, done); }), kNotAttached);
  }
  EXPECT_EQ(FailureOf([&](const auto& done) { client_.RequestServerStatistics(done); }),
            kNotAttached);
}

TEST_F(WithoutEngine, DebugAndPurgeFailThroughTheirCallBack) {
  EXPECT_EQ(FailureOf([&](const auto& done) { client_.DebugCell(1, 2, true, done); }),
            kNotAttached);
  EXPECT_EQ(FailureOf([&](const auto& done) { client_.DebugAt(1, 2, true, done); }), kNotAttached);
  EXPECT_EQ(FailureOf([&](const auto& done) { client_.DebugOffEverywhere(done); }), kNotAttached);
  EXPECT_EQ(FailureOf([&](const auto& done) { client_.PurgeResults({1, 2}, done); }), kNotAttached);
  EXPECT_EQ(FailureOf([&](const auto& done) { client_.Purge(done); }), kNotAttached);
}

TEST_F(WithoutEngine, ATokenThatNamesNothingThrows) {
  EXPECT_THAT(ReasonOf([&] { client_.GetResult({}); }), HasSubstr("no result waits"));
}

TEST_F(WithoutEngine, WhatACallBackThrowsIsLoggedAndTheNextOneRuns) {
  client_.SynchGrid([](const SEResultToken&) { throw ExSGClientBase("out of the call-back"); });
  EXPECT_THAT(log_.Text(), HasSubstr("out of the call-back"));
  EXPECT_EQ(FailureOf([&](const auto& done) { client_.SynchGrid(done); }), kNotAttached);
}

TEST_F(WithoutEngine, ACallBackMayAskAgain) {
  bool inner = false;
  {
    SuperGridClient client{MParams()};
    client.SynchGrid([&](const SEResultToken&) {
      client.DropGrid(false, [&](const SEResultToken&) { inner = true; });
    });
  }
  EXPECT_TRUE(inner) << "no call-back is pending when a front end is gone";
}

TEST(NetworkParameters, AKeyThatNobodyKnowsIsWarnedOf) {
  MParams params;
  params.Set("Network", "Prot", "4520");
  const EngineLog log;
  const SuperGridClient client(params);
  EXPECT_THAT(log.Text(), HasSubstr("3 the parameter file holds the key \"Prot\""));
}

}  // namespace
}  // namespace quarro::testing
