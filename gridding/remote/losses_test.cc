// Connections that break and servers that end.
#include <chrono>
#include <future>
#include <thread>

#include "gridding/remote/network_fixture.h"

namespace quarro::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

constexpr int kLines = 12;

class Losses : public NetworkTest {
 protected:
  Losses() {
    StartServer();
    proxy_ = std::make_unique<TcpProxy>(server_->Port());
    client_ = NewAttachedClient(proxy_->Port());
  }
  ~Losses() override {
    proxy_->Mend();
    client_.reset();
  }

  // Begins again with another time to reconnect.
  void StartAfresh(const std::string& seconds_of_server, const std::string& seconds_of_client) {
    client_.reset();
    server_.reset();
    Set("ReconnectSeconds", seconds_of_server);
    StartServer();
    proxy_ = std::make_unique<TcpProxy>(server_->Port());
    Set("ReconnectSeconds", seconds_of_client);
    client_ = NewAttachedClient(proxy_->Port());
  }

  // Detaches, attaches and loads the grid. The session before need not have closed it, but has to
  // be on its way there.
  void ExpectToComeBack(const std::string& grid) {
    client_->DetachEngine();
    client_->AttachEngine(SpecOf(proxy_->Port()));
    std::string reason;
    while ((reason = ReasonOf([&] { Load(*client_, grid); })) != "no error") {
      ASSERT_THAT(reason, HasSubstr("is in use by"));
      ASSERT_THAT(reason, Not(HasSubstr("whose connection is lost")));
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }

  // The reason of a barrier that is waited for.
  std::string SynchReason() {
    return ReasonOf([&] { Synch(*client_); });
  }

  std::unique_ptr<TcpProxy> proxy_;
  std::unique_ptr<SuperGridClient> client_;
};

TEST_F(Losses, EveryCompletionComesOnceAndInOrderThroughConnectionsThatBreak) {
  Construct(*client_, "g");
  Replies replies;
  std::vector<std::string> expected;
  for (int i = 0; i < kLines; ++i) {
    client_->AddLine(Line(static_cast<unsigned>(i)), static_cast<std::uint32_t>(i), false,
                     replies.Expect(std::to_string(i)));
    expected.push_back(std::to_string(i));
    proxy_->CutOnce();
  }
  replies.Wait();
  EXPECT_EQ(replies.Names(), expected);
  EXPECT_THAT(log_.Text(), HasSubstr("the connection to the engine at 127.0.0.1:"));
  std::uint32_t id = 0;
  for (const auto& token : replies.Tokens()) {
    const auto line = FetchResult<ResultLineAdded>(*client_, token);
    EXPECT_EQ(line->line_id, id++);
    EXPECT_EQ(line->used, 19200U);
  }
  EXPECT_THAT(Query(*client_, 1), Contains("lines: " + std::to_string(kLines)))
      << "no line was taken twice";
}

TEST_F(Losses, AResultCutInTheMiddleComesWholeAfterwards) {
  Construct(*client_, "g", 10.0F, 0.5F);
  Add(*client_, Line(1));
  Refine(*client_);
  const SGBoundingBox bounds = GridBounds(*client_);
  const std::string expected = TextOf(*Depth(*client_, bounds));
  for (const std::uint64_t bytes : {1000U, 20000U, 60000U}) {
    proxy_->CutAfter(bytes);
    EXPECT_EQ(TextOf(*Depth(*client_, bounds)), expected) << "cut after " << bytes << " bytes";
  }
}

TEST_F(Losses, WorkGoesOnWhileTheConnectionIsGone) {
  Construct(*client_, "g");
  Replies replies;
  for (unsigned i = 0; i < 3; ++i) client_->AddLine(Line(i), i, false, replies.Expect());
  proxy_->Cut();
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  proxy_->Mend();
  replies.Wait();
  for (const auto& token : replies.Tokens()) {
    EXPECT_EQ(FetchResult<ResultLineAdded>(*client_, token)->failed, 0U);
  }
  EXPECT_THAT(log_.Text(), HasSubstr("4 the connection to the engine at 127.0.0.1:"))
      << "at a level that is seen by default";
}

// Holds up the message that the engine is lost, and with it what follows the loss.
class LossHeldUp : public SlogDrain {
 public:
  void Write(const std::string& /*channel*/, int /*level*/, const std::string& text) override {
    if (text.find(" is lost: ") != std::string::npos) let_go_.get_future().wait();
  }
  void LetGo() { let_go_.set_value(); }

 private:
  std::promise<void> let_go_;
};

TEST_F(Losses, ABarrierThatFailsBeforeTheLinesBeforeItIsToldAfterThem) {
  Construct(*client_, "g");
  const auto held_up = std::make_shared<LossHeldUp>();
  Slog("engine").AddDrain(held_up);
  std::vector<std::string> lines;
  for (unsigned i = 1; i <= 6; ++i) lines.push_back(LongLine(i));
  Replies replies;
  std::vector<std::string> expected;
  for (const std::string& line : lines) {
    client_->AddLine(line, 0, false, replies.Expect(line));
    expected.push_back(line);
  }
  proxy_->Cut();
  client_->SynchGrid(replies.Expect("synch"));  // fails: nobody has noticed the loss for the lines
  held_up->LetGo();
  replies.Wait();
  expected.emplace_back("synch");
  EXPECT_EQ(replies.Names(), expected);
  const auto tokens = replies.Tokens();
  EXPECT_EQ(FetchResult<ResultLineAdded>(*client_, tokens[5])->failed, 1U);
  EXPECT_THAT(ReasonOf([&] { FetchResult<SEBaseResult>(*client_, tokens[6]); }),
              HasSubstr("is lost: no connection for 2 s"));
}

TEST_F(Losses, AResultThatIsBeingFetchedIsNotCountedAmongThoseThatWait) {
  StartAfresh("3600", "3600");
  Construct(*client_, "g");
  Add(*client_, Line(1));
  const SGBoundingBox bounds = GridBounds(*client_);
  Replies statistics;
  client_->RequestServerStatistics(statistics.Expect());
  statistics.Wait();
  Replies depth;
  client_->RequestDepth(bounds, 1, 1, depth.Expect());
  depth.Wait();
  proxy_->Cut();
  // One of two takes the result and waits for it; the other finds it gone.
  std::promise<void> gone;
  const auto fetch = [&] {
    const std::string reason =
        ReasonOf([&] { FetchResult<ResultDepth>(*client_, depth.Tokens().front()); });
    if (reason != "no error") gone.set_value();
    return reason;
  };
  auto first = std::async(std::launch::async, fetch);
  auto second = std::async(std::launch::async, fetch);
  gone.get_future().wait();
  EXPECT_EQ(FetchResult<ResultServStats>(*client_, statistics.Tokens().front())->results_waiting,
            0U);
  proxy_->Mend();
  EXPECT_THAT((std::vector{first.get(), second.get()}),
              ::testing::UnorderedElementsAre("no error", HasSubstr("no result waits")));
}

TEST_F(Losses, WhoDetachesFromALostEngineThatIsBackIsNotKeptFromHisGrid) {
  StartAfresh("3600", "1");
  Construct(*client_, "g");
  proxy_->Cut();
  EXPECT_THAT(SynchReason(), HasSubstr("is lost: no connection for 1 s"));
  proxy_->Mend();
  ExpectToComeBack("g");
}

TEST_F(Losses, WhoDetachesInAShortBreakIsNotKeptFromHisGrid) {
  StartAfresh("3600", "3600");
  Construct(*client_, "g");
  proxy_->Cut();
  EXPECT_TRUE(log_.WaitFor("the connection to the engine at "));
  // The break goes on while the session is being closed, for less than that waits.
  const auto mended = std::async(std::launch::async, [this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    proxy_->Mend();
  });
  ExpectToComeBack("g");
}

TEST_F(Losses, TheHolderWhoseConnectionIsLostIsToldWithTheTimeThatHeHas) {
  StartAfresh("3600", "3600");
  Construct(*client_, "g");
  const auto other = NewAttachedClient();
  const auto reason_of_away = [&] {
    for (;;) {
      std::string reason = ReasonOf([&] { Load(*other, "g"); });
      const bool is_there = reason.find(" is in use by ") != std::string::npos &&
                            reason.find(" is lost") == std::string::npos;
      if (!is_there) return reason;
      std::this_thread::yield();
    }
  };
  std::vector<std::string> lines;
  for (unsigned i = 1; i <= 6; ++i) lines.push_back(LongLine(i));
  proxy_->Cut();
  const std::string text =
      "grid \"g\" is in use by process [0-9]+ on host .*, for the client at 127.0.0.1:[0-9]+, "
      "whose connection is lost; the grid is free within 3[56][0-9][0-9] s";
  EXPECT_THAT(reason_of_away(), MatchesRegex(text));

  proxy_->Mend();
  Replies replies;
  for (const std::string& line : lines) client_->AddLine(line, 0, false, replies.Expect());
  proxy_->Cut();
  EXPECT_THAT(reason_of_away(), MatchesRegex(text + ", once its lines in work are done"));
  proxy_->Mend();
}

TEST_F(Losses, WhatIsOutstandingFailsOnceTheTimeToReconnectIsOver) {
  Construct(*client_, "g");
  const auto begun = std::chrono::steady_clock::now();
  proxy_->Cut();
  Replies replies;
  // Asked for with the connection gone, or lost with it: both wake.
  EXPECT_THAT(SynchReason(), ::testing::MatchesRegex("the engine at 127.0.0.1:[0-9]+ is lost: no "
                                                     "connection for 2 s"));
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(8));
  EXPECT_THAT(ReasonOf([&] { client_->AddLine("1.xyz", 1, false, {}); }), HasSubstr("is lost"));
  EXPECT_FALSE(client_->SetRemoteLogLevel(3));
  EXPECT_TRUE(log_.WaitFor("5 the engine at "));

  proxy_->Mend();
  client_->DetachEngine();
  client_->AttachEngine(SpecOf(proxy_->Port()));
  std::string reason;
  // The server closes the grid once it gives the session up.
  while ((reason = ReasonOf([&] { Load(*client_, "g"); })) != "no error") {
    ASSERT_THAT(reason, HasSubstr("is in use by"));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

TEST_F(Losses, LinesOfALostEngineFailByTheirFlag) {
  Construct(*client_, "g");
  Replies replies;
  client_->AddLine(LongLine(77), 77, false, replies.Expect());
  client_->AddLine(LongLine(78), 78, false, replies.Expect());
  proxy_->Cut();
  replies.Wait();
  const auto line = FetchResult<ResultLineAdded>(*client_, replies.Tokens()[1]);
  EXPECT_EQ(line->line_id, 78U);
  EXPECT_EQ(line->failed, 1U);
}

TEST_F(Losses, ANetworkThatSwallowsEverythingIsNoticed) {
  Construct(*client_, "g");
  const auto begun = std::chrono::steady_clock::now();
  proxy_->Stall();
  EXPECT_THAT(SynchReason(), HasSubstr("is lost: no connection for 2 s"));
  // Two pings, the time to reconnect, and some time to do it.
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(20));
}

TEST_F(Losses, AServerThatEndsTellsItsClientsAndWakesWhoWaits) {
  Construct(*client_, "g");
  Add(*client_, Line(1), 1);
  Replies lines;
  constexpr std::uint32_t kLongLines = 10;
  std::vector<std::string> names;
  for (unsigned i = 0; i < kLongLines; ++i) names.push_back(LongLine(i));
  for (const std::string& name : names) client_->AddLine(name, 2, false, lines.Expect());
  std::promise<std::string> synch;
  client_->SynchGrid([&](const SEResultToken& token) {
    synch.set_value(ReasonOf([&] { client_->GetResult(token); }));
  });
  server_->Stop();
  lines.Wait();
  EXPECT_NE(synch.get_future().get(), "no error");
  EXPECT_THAT(ReasonOf([&] { Construct(*client_, "h"); }),
              HasSubstr("is lost: the engine is shutting down"));
  std::uint32_t failed = 0;
  for (const auto& token : lines.Tokens()) {
    failed += FetchResult<ResultLineAdded>(*client_, token)->failed;
  }
  EXPECT_GE(failed, 1U) << "what had not begun did not run";
  EXPECT_THAT(log_.Text(), HasSubstr("failed: cancelled, since the engine is shutting down"));

  server_.reset();
  StartServer();
  client_->AttachEngine(SpecOf(server_->Port()));
  Load(*client_, "g");
  EXPECT_THAT(Query(*client_, 1), Contains("lines: " + std::to_string(1 + kLongLines - failed)));
}

TEST_F(Losses, AServerThatIsGoneIsNoHindranceToDetaching) {
  Construct(*client_, "g");
  server_.reset();
  EXPECT_THAT(SynchReason(), HasSubstr("is lost"));
  client_->DetachEngine();
  EXPECT_EQ(SynchReason(), "no engine is attached");
  EXPECT_EQ(ReasonOf([&] { client_->DetachEngine(); }), "no engine is attached");
}

TEST_F(Losses, AServerThatForgotTheSessionIsALostEngine) {
  Construct(*client_, "g");
  proxy_->Cut();
  server_.reset();
  Set("Port", std::to_string(proxy_->Port()));
  proxy_.reset();
  StartServer();
  EXPECT_THAT(SynchReason(), HasSubstr("is lost: it does not know the session any more"));
  proxy_ = std::make_unique<TcpProxy>(server_->Port());
}

TEST_F(Losses, DestroyingAFrontEndWithoutConnectionLeavesNoCallBackPending) {
  Construct(*client_, "g");
  int calls = 0;
  client_->AddLine(Line(1), 1, false, [&](const SEResultToken&) { ++calls; });
  client_->SynchGrid([&](const SEResultToken&) { ++calls; });
  proxy_->Cut();
  client_.reset();
  EXPECT_EQ(calls, 2);
}

}  // namespace
}  // namespace quarro::testing
