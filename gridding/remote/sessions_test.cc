// Several clients and several servers.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "gridding/remote/network_fixture.h"

namespace quarro::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

class Sessions : public NetworkTest {
 protected:
  Sessions() { StartServer(); }
};

TEST_F(Sessions, TwoClientsOfOneServerHaveAGridEach) {
  const auto first = NewAttachedClient();
  const auto second = NewAttachedClient();
  Construct(*first, "one");
  Construct(*second, "two");
  EXPECT_EQ(Add(*first, Line(1), 11)->line_id, 11U);
  EXPECT_EQ(Add(*second, Line(2), 12)->line_id, 12U);
  EXPECT_EQ(Query(*first, 1).front(), "name: one");
  EXPECT_EQ(Query(*second, 1).front(), "name: two");
  EXPECT_NE(AllResults(*first), AllResults(*second));
}

TEST_F(Sessions, AGridInUseIsRefusedNamingTheClientThatHasIt) {
  const auto first = NewAttachedClient();
  const auto second = NewAttachedClient();
  Construct(*first, "g");
  const std::string reason = ReasonOf([&] { Load(*second, "g"); });
  EXPECT_THAT(reason, MatchesRegex("grid \"g\" is in use by process [0-9]+ on host .*, for the "
                                   "client at 127.0.0.1:[0-9]+"));
  EXPECT_THAT(log_.Text(), HasSubstr("loading grid \"g\" failed: " + reason));
  EXPECT_EQ(ReasonOf([&] { Construct(*second, "g"); }), reason);
  Drop(*first);
  EXPECT_EQ(ReasonOf([&] { Load(*second, "g"); }), "no error");
}

TEST_F(Sessions, DetachingFreesTheGrid) {
  const auto first = NewAttachedClient();
  const auto second = NewAttachedClient();
  Construct(*first, "g");
  first->AddLine(Line(1), 1, false, {});
  first->DetachEngine();
  Load(*second, "g");
  EXPECT_THAT(Query(*second, 1), ::testing::Contains("lines: 1"));
}

TEST_F(Sessions, AnAttachedFrontEndSwitchesToAnotherServer) {
  FreshDirectory other_directory;
  MParams other_parameters = parameters_;
  other_parameters.Set("Engine", "WorkingDirectory", other_directory.path().string());
  const rpc::NetworkServer other(other_parameters);
  const auto client = NewAttachedClient();
  Construct(*client, "g");
  Add(*client, Line(1));
  client->AttachEngine(SpecOf(other.Port()));
  EXPECT_THROW(Query(*client, 1), ExSGCNoGrid);
  Construct(*client, "g");
  EXPECT_THAT(Query(*client, 1), ::testing::Contains("lines: 0"));
  client->AttachEngine(SpecOf(server_->Port()));
  Load(*client, "g");
  EXPECT_THAT(Query(*client, 1), ::testing::Contains("lines: 1"));
}

TEST_F(Sessions, AFailedAttachmentLeavesTheOneThatIs) {
  const auto client = NewAttachedClient();
  Construct(*client, "g");
  EXPECT_THAT(ReasonOf([&] { client->AttachEngine(SpecOf(1)); }),
              HasSubstr("the engine at 127.0.0.1:1, 2 threads, engine 1.1, protocol 1: cannot be "
                        "reached with plain text: "));
  EXPECT_EQ(Query(*client, 1).front(), "name: g");
}

TEST_F(Sessions, AnEngineOfAnotherProtocolVersionIsRefusedNamingBoth) {
  QuarroSpec spec = SpecOf(server_->Port());
  spec.protocol_version = 7;
  EXPECT_EQ(ReasonOf([&] { NewClient()->AttachEngine(spec); }),
            "the client speaks protocol version 1, the engine protocol version 7: use a client and "
            "an engine of one version");
}

TEST_F(Sessions, MessagesOfTheEngineComeToTheClientsOwnChannel) {
  const auto client = NewAttachedClient();
  Construct(*client, "g");
  const std::string line = Line(1);
  Add(*client, line, 3);
  EXPECT_THAT(log_.Text(), HasSubstr("1 grid \"g\" is open\n"));
  EXPECT_THAT(log_.Text(), HasSubstr("2 line 3 \"1.xyz\": read 19200 beams of 19200 pings"));
}

TEST_F(Sessions, MessagesOfAnotherSessionDoNotCome) {
  const auto client = NewAttachedClient();
  EXPECT_TRUE(client->SetRemoteLogLevel(7));
  Slog("engine").SetFilter(SlogLevel(0));
  Construct(*client, "quiet");
  EXPECT_EQ(log_.Text(), "");
  const auto other = NewAttachedClient();
  Construct(*other, "loud");
  EXPECT_EQ(log_.Text(), "1 grid \"loud\" is open\n");
}

TEST_F(Sessions, TheRemoteLogLevelIsThatOfTheSessionAndOfTheClientsChannel) {
  const auto client = NewAttachedClient();
  EXPECT_FALSE(client->SetRemoteLogLevel(8));
  EXPECT_TRUE(client->SetRemoteLogLevel(2));
  EXPECT_EQ(client->Log().Filter(), 2);
  Construct(*client, "g");
  Add(*client, Line(1), 3);
  EXPECT_THAT(log_.Text(), ::testing::StartsWith("2 line 3 \"1.xyz\": read"));
}

TEST_F(Sessions, AFileBeyondTheSurveyDirectoriesIsNotReadAndFailsItsLine) {
  const auto client = NewAttachedClient();
  Construct(*client, "g");
  for (const char* name : {"/etc/hostname", "../secret.xyz", "nowhere.xyz"}) {
    EXPECT_EQ(Add(*client, name, 5)->failed, 1U) << name;
    EXPECT_THAT(log_.Text(), HasSubstr("4 line 5 \"" + std::string(name) + "\" failed: "));
  }
  EXPECT_EQ(Add(*client, Line(1), 6)->failed, 0U);
}

TEST_F(Sessions, ALineBehindOneThatIsRefusedAndBeforeOneIsTaken) {
  const auto client = NewAttachedClient();
  Construct(*client, "g");
  Add(*client, Line(1));
  Replies replies;
  client->AddLine(Line(2), 2, false, replies.Expect());
  client->AddLine("/etc/hostname", 3, false, replies.Expect());
  client->AddLine(Line(4), 4, false, replies.Expect());
  replies.Wait();
  std::vector<std::uint32_t> failed;
  for (const auto& token : replies.Tokens()) {
    failed.push_back(FetchResult<ResultLineAdded>(*client, token)->failed);
  }
  EXPECT_THAT(failed, ElementsAre(0, 1, 0));
}

TEST_F(Sessions, ASurveyDirectoryThatIsMissingIsWarnedOfAtTheStartAndNamedInRefusals) {
  server_.reset();
  const std::string missing = directory_ / "mounted";
  Set("SurveyDirectories", directory_.path().string() + ";" + missing);
  Slog("server").SetFilter(SlogLevel(3));
  ::testing::internal::CaptureStderr();
  StartServer();
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr("the folder \"" + missing +
                        "\" of parameter SurveyDirectories of section Network does not exist "
                        "(yet): its lines are found once it does"));
  Slog("server").SetFilter(SlogLevel(8));
  const auto client = NewAttachedClient();
  Construct(*client, "g");
  EXPECT_EQ(Add(*client, "nowhere.xyz", 5)->failed, 1U);
  EXPECT_THAT(log_.Text(), HasSubstr("\"" + missing + "\" (no such folder)"));
}

TEST_F(Sessions, ANameCannotForgeALineOfTheServersLog) {
  const auto client = NewAttachedClient();
  Construct(*client, "g");
  Slog("server").SetFilter(SlogLevel(4));
  ::testing::internal::CaptureStderr();
  Add(*client, "x\nsession 7: is over\x1b[2J\x7f", 5);
  Slog("server").SetFilter(SlogLevel(8));
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr("line 5 \"x?session 7: is over?[2J?\" failed: "));
}

TEST_F(Sessions, ABarrierThatAFullQueueRefusesIsToldAfterTheLinesBeforeIt) {
  server_.reset();
  Set("MaxQueueLength", "3");
  parameters_.Set("Engine", "AllowDuplicateLines", "true");
  StartServer();
  const auto client = NewAttachedClient();
  Construct(*client, "g");
  const std::string line = LongLine(1);
  std::string reason;
  do {  // again where a line was done before the barrier was asked for
    Replies replies;
    for (std::uint32_t id = 1; id <= 3; ++id) {
      client->AddLine(line, id, false, replies.Expect("line"));
    }
    client->SynchGrid(replies.Expect("synch"));
    replies.Wait();
    EXPECT_THAT(replies.Names(), ElementsAre("line", "line", "line", "synch"));
    reason = ReasonOf([&] { FetchResult<SEBaseResult>(*client, replies.Tokens()[3]); });
  } while (reason == "no error");
  EXPECT_THAT(reason, HasSubstr("3 requests waiting, as many as MaxQueueLength"));
}

TEST_F(Sessions, NamesOfGridsArePlainNames) {
  const auto client = NewAttachedClient();
  for (const char* name : {"../g", "/tmp/g", "a/b", "..", ""}) {
    EXPECT_THROW(Construct(*client, name), ExSGClientBase) << name;
    EXPECT_THROW(Load(*client, name), ExSGClientBase) << name;
  }
  EXPECT_THAT(ReasonOf([&] { Construct(*client, "\xff"); }), HasSubstr("is not in UTF-8"));
}

TEST_F(Sessions, LinesThatAreNotDoneWhenDetachingGoOnAtTheEngine) {
  Set("DetachSeconds", "0");
  const auto client = NewAttachedClient();
  Construct(*client, "g");
  constexpr unsigned kLines = 3;
  Replies replies;
  for (unsigned i = 1; i <= kLines; ++i) {
    client->AddLine(LongLine(i), i, false, replies.Expect());
  }
  client->DetachEngine();
  const auto tokens = replies.Tokens();
  ASSERT_EQ(tokens.size(), kLines) << "each line has its call-back before the detach returns";
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    const auto line = FetchResult<ResultLineAdded>(*client, tokens[i]);
    EXPECT_EQ(line->line_id, i + 1);
    EXPECT_EQ(line->failed, 0U);
    if (i + 1 == kLines) {
      EXPECT_EQ(line->pings, 0U) << "nothing is known yet of the last";
    }
  }
  // The engine closes the grid after them.
  client->AttachEngine(SpecOf(server_->Port()));
  std::string reason;
  while (!(reason = ReasonOf([&] { Load(*client, "g"); })).starts_with("no error")) {
    // By the session, or by nobody any more if it has ended since the refusal.
    ASSERT_THAT(reason, HasSubstr("is in use by"));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  EXPECT_THAT(Query(*client, 1), ::testing::Contains("lines: " + std::to_string(kLines)));
}

TEST_F(Sessions, ACallBackCannotDetach) {
  const auto client = NewAttachedClient();
  std::promise<std::string> reason;
  client->RequestServerStatistics(
      [&](const SEResultToken&) { reason.set_value(ReasonOf([&] { client->DetachEngine(); })); });
  EXPECT_THAT(reason.get_future().get(), HasSubstr("cannot be detached by a call-back"));
}

TEST_F(Sessions, AResultThatWasNotFetchedStaysAtTheEngineThatIsDetached) {
  const auto client = NewAttachedClient();
  Construct(*client, "g");
  Add(*client, Line(1));
  Replies replies;
  client->RequestDepth(GridBounds(*client), 1, 1, replies.Expect());
  replies.Wait();
  client->DetachEngine();
  EXPECT_EQ(ReasonOf([&] { client->GetResult(replies.Tokens().front()); }),
            "the engine was detached");
}

}  // namespace
}  // namespace quarro::testing
