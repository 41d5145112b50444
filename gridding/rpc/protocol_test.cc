// The protocol as any client may use it.
#include <chrono>
#include <set>
#include <thread>

#include <grpcpp/generic/generic_stub.h>

#include "gridding/rpc/protocol_fixture.h"

namespace quarro::testing {
namespace {

using ::testing::HasSubstr;

class Protocol : public ProtocolTest {};

TEST_F(Protocol, ASessionIdIsLongAndNeverTheSame) {
  Start();
  std::set<std::string> ids;
  for (int i = 0; i < 20; ++i) ids.insert(OpenId());
  EXPECT_EQ(ids.size(), 20U);
  for (const std::string& id : ids) EXPECT_EQ(id.size(), 64U) << "256 bits";
}

TEST_F(Protocol, AnotherVersionIsRefusedNamingBoth) {
  Start();
  EXPECT_THAT(Open(2).refused().reason(), HasSubstr("the client speaks protocol version 2, the "
                                                    "engine protocol version 1"));
}

TEST_F(Protocol, AnUnknownSessionIsNotFoundByAnyCall) {
  Start();
  v1::AddLineRequest line;
  line.mutable_header()->set_session("0123");
  v1::RequestReply reply;
  EXPECT_EQ(Call(&v1::Engine::Stub::AddLine, line, reply).error_code(),
            grpc::StatusCode::NOT_FOUND);
  v1::CloseSessionRequest close;
  v1::CloseSessionReply close_reply;
  EXPECT_EQ(Call(&v1::Engine::Stub::CloseSession, close, close_reply).error_code(),
            grpc::StatusCode::NOT_FOUND);
  grpc::ClientContext context;
  v1::Event event;
  const auto stream = stub_->Completions(&context, v1::CompletionsRequest());
  EXPECT_FALSE(stream->Read(&event));
  EXPECT_EQ(stream->Finish().error_code(), grpc::StatusCode::NOT_FOUND);
}

TEST_F(Protocol, ARequestSentTwiceIsCarriedOutOnce) {
  Start();
  const std::string session = OpenId();
  WriteStrip(directory_ / "1.xyz", {});
  WriteStrip(directory_ / "2.xyz", {.seed = 2});
  Construct(session, 1);
  EXPECT_TRUE(Add(session, 2, "1.xyz").has_accepted());
  EXPECT_TRUE(Add(session, 2, "1.xyz").has_accepted());
  EXPECT_TRUE(Add(session, 3, "2.xyz").has_accepted());
  EXPECT_TRUE(Add(session, 2, "1.xyz").has_accepted());
  const auto events = Completions(session, 0, 3);
  ASSERT_EQ(events.size(), 3U);
  EXPECT_EQ(events[1].completion().line_added().line_id(), 2U);
  EXPECT_EQ(events[2].completion().line_added().line_id(), 3U);
  EXPECT_EQ(events[2].completion().line_added().failed(), 0U);
}

TEST_F(Protocol, ARefusalSentTwiceIsTheSameRefusal) {
  Start();
  const std::string session = OpenId();
  const auto first = Add(session, 1, "1.xyz");
  EXPECT_EQ(first.refused().kind(), v1::Failure::NO_GRID);
  Construct(session, 2);
  EXPECT_EQ(Add(session, 1, "1.xyz").refused().reason(), first.refused().reason());
}

TEST_F(Protocol, ARequestThatComesAfterLaterOnesIsNotCarriedOut) {
  Start();
  const std::string session = OpenId();
  Construct(session, 5);
  EXPECT_THAT(Add(session, 4, "1.xyz").refused().reason(), HasSubstr("comes after later ones"));
}

TEST_F(Protocol, EventsComeAgainUntilTheyAreAcknowledged) {
  Start();
  const std::string session = OpenId();
  Construct(session, 1);
  v1::QueryRequest query;
  query.set_kind(1);
  Completions(session, 0, 1);
  Ask(&v1::Engine::Stub::RequestQuery, query, session, 2);
  const auto first = Completions(session, 0, 2);
  ASSERT_EQ(first.size(), 2U);
  const auto again = Completions(session, first[0].sequence(), 2);
  ASSERT_EQ(again.size(), 1U);
  EXPECT_EQ(again[0].SerializeAsString(), first[1].SerializeAsString());
  // Asking for what comes after an event acknowledges it.
  EXPECT_EQ(Completions(session, 0, 2).size(), 1U);
}

TEST_F(Protocol, AResultOfOneSessionIsWorthNothingInAnother) {
  Start();
  const std::string owner = OpenId();
  const std::string other = OpenId();
  WriteStrip(directory_ / "1.xyz", {});
  Construct(owner, 1);
  Add(owner, 2, "1.xyz");
  Completions(owner, 0, 2);
  EXPECT_TRUE(RequestDepth(owner, 3).has_accepted());
  const auto events = Completions(owner, 0, 3);
  ASSERT_FALSE(events.empty());
  const std::uint32_t result = events.back().completion().held().result();
  const auto fetch = [&](const std::string& session) {
    v1::FetchResultRequest request;
    request.set_session(session);
    request.set_result(result);
    grpc::ClientContext context;
    const auto stream = stub_->FetchResult(&context, request);
    v1::ResultChunk chunk;
    EXPECT_TRUE(stream->Read(&chunk));
    v1::ResultChunk rest;
    while (stream->Read(&rest)) {
    }
    stream->Finish();
    return chunk;
  };
  EXPECT_THAT(fetch(other).failure().reason(), HasSubstr("no result waits under the token"));
  EXPECT_EQ(fetch(owner).header().kind(), v1::GridResultHeader::DEPTH);
  EXPECT_EQ(fetch(owner).header().kind(), v1::GridResultHeader::DEPTH) << "until it is released";
  v1::ReleaseResultRequest release;
  release.set_session(owner);
  release.set_result(result);
  v1::ReleaseResultReply reply;
  Call(&v1::Engine::Stub::ReleaseResult, release, reply);
  EXPECT_THAT(fetch(owner).failure().reason(), HasSubstr("no result waits under the token"));
}

TEST_F(Protocol, ASecondStreamTakesOverFromTheFirst) {
  Start();
  v1::CompletionsRequest request;
  request.set_session(OpenId());
  grpc::ClientContext first_context;
  const auto first = stub_->Completions(&first_context, request);
  v1::Event event;
  EXPECT_TRUE(first->Read(&event));
  EXPECT_TRUE(event.has_resumed());
  grpc::ClientContext second_context;
  const auto second = stub_->Completions(&second_context, request);
  EXPECT_TRUE(second->Read(&event));
  EXPECT_FALSE(first->Read(&event));
  EXPECT_EQ(first->Finish().error_code(), grpc::StatusCode::ABORTED);
  second_context.TryCancel();
  second->Finish();
}

TEST_F(Protocol, ASessionWhoseClientStaysAwayIsEndedAndItsGridClosed) {
  Set("ReconnectSeconds", "2");
  Start();
  const std::string session = OpenId();
  Construct(session, 1);
  Completions(session, 0, 1);
  const std::string other = OpenId();
  std::uint64_t id = 1;
  v1::LoadGridRequest load;
  load.set_name("g");
  for (;; ++id) {
    ASSERT_TRUE(Ask(&v1::Engine::Stub::LoadGrid, load, other, id).has_accepted());
    const auto events = Completions(other, 0, id);
    ASSERT_FALSE(events.empty());
    if (events.back().completion().has_grid_loaded()) break;
    ASSERT_THAT(events.back().completion().failure().reason(), HasSubstr("is in use by"));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  EXPECT_GT(id, 1U) << "it was kept for a while";
}

TEST_F(Protocol, ABoxThatIsNoneIsRefused) {
  Start();
  const std::string session = OpenId();
  Construct(session, 1);
  v1::GridResultRequest request;
  request.mutable_box()->set_west(5);
  EXPECT_FALSE(
      Ask(&v1::Engine::Stub::RequestDepth, request, session, 2).refused().reason().empty());
}

TEST_F(Protocol, TheHealthServiceTellsThatTheEngineServes) {
  Start();
  grpc::GenericStub health(channel_);
  grpc::ClientContext context;
  grpc::CompletionQueue queue;
  const grpc::Slice nothing;
  const grpc::ByteBuffer empty(&nothing, 1);
  const auto call =
      health.PrepareUnaryCall(&context, "/grpc.health.v1.Health/Check", empty, &queue);
  call->StartCall();
  grpc::ByteBuffer reply;
  grpc::Status status;
  call->Finish(&reply, &status, &status);
  void* tag = nullptr;
  bool ok = false;
  ASSERT_TRUE(queue.Next(&tag, &ok));
  ASSERT_TRUE(status.ok()) << status.error_message();
  grpc::Slice bytes;
  reply.DumpToSingleSlice(&bytes);
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), std::string("\x08\x01")) << "SERVING";
}

TEST_F(Protocol, AnAddressInUseIsRefusedNamingIt) {
  Start();
  Set("Port", std::to_string(server_->Port()));
  EXPECT_THAT(ReasonOf([&] { const rpc::NetworkServer second(parameters_); }),
              HasSubstr("address \"127.0.0.1\" port " + std::to_string(server_->Port()) +
                        " cannot be listened on"));
}

TEST_F(Protocol, AWorkingDirectoryThatIsNoneStopsTheServer) {
  parameters_.Set("Engine", "WorkingDirectory", directory_ / "none");
  EXPECT_THAT(ReasonOf([&] { Start(); }), HasSubstr("is no directory"));
}

}  // namespace
}  // namespace quarro::testing
