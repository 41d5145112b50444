// What a server refuses because it would be too much.
#include "gridding/rpc/protocol_fixture.h"

namespace quarro::testing {
namespace {

using ::testing::AnyOf;
using ::testing::HasSubstr;

class Limits : public ProtocolTest {
 protected:
  // The first chunk of the result that a completion announces.
  v1::ResultChunk Fetch(const std::string& session, const v1::Event& completed) {
    v1::FetchResultRequest request;
    request.set_session(session);
    request.set_result(completed.completion().held().result());
    grpc::ClientContext context;
    const auto stream = stub_->FetchResult(&context, request);
    v1::ResultChunk chunk;
    EXPECT_TRUE(stream->Read(&chunk));
    context.TryCancel();
    stream->Finish();
    return chunk;
  }
};

TEST_F(Limits, MoreSessionsThanAllowedAreRefused) {
  Set("MaxSessions", "2");
  Start();
  const std::string first = OpenId();
  OpenId();
  const auto refused = Open().refused();
  EXPECT_EQ(refused.kind(), v1::Failure::OUT_OF_ROOM);
  EXPECT_THAT(refused.reason(), HasSubstr("2 sessions, as many as MaxSessions"));
  v1::CloseSessionRequest close;
  close.set_session(first);
  close.set_wait_ms(5000);
  v1::CloseSessionReply reply;
  EXPECT_TRUE(Call(&v1::Engine::Stub::CloseSession, close, reply).ok());
  EXPECT_TRUE(reply.finished());
  EXPECT_TRUE(Open().has_opened());
}

TEST_F(Limits, MoreRequestsThanMayWaitAreRefused) {
  Set("MaxQueueLength", "3");
  Start();
  const std::string session = OpenId();
  WriteStrip(directory_ / "1.xyz", {.length_m = 600});
  Construct(session, 1);
  Completions(session, 0, 1);
  std::vector<v1::Failure> refused;
  for (std::uint64_t id = 2; id < 8; ++id) {
    const auto reply = Add(session, id, "1.xyz");
    if (reply.has_refused()) refused.push_back(reply.refused());
  }
  ASSERT_FALSE(refused.empty());
  EXPECT_EQ(refused[0].kind(), v1::Failure::OUT_OF_ROOM);
  EXPECT_THAT(refused[0].reason(), HasSubstr("as many as MaxQueueLength"));
}

TEST_F(Limits, MoreResultsThanMayWaitAreRefused) {
  Set("MaxWaitingResults", "2");
  Start();
  const std::string session = OpenId();
  WriteStrip(directory_ / "1.xyz", {});
  Construct(session, 1);
  Add(session, 2, "1.xyz");
  Completions(session, 0, 2);
  std::vector<v1::Event> held;
  for (std::uint64_t id = 3; id < 5; ++id) {
    EXPECT_TRUE(RequestDepth(session, id).has_accepted());
    held.push_back(Completions(session, 0, id).back());
  }
  const auto refused = RequestDepth(session, 5).refused();
  EXPECT_EQ(refused.kind(), v1::Failure::OUT_OF_ROOM);
  EXPECT_THAT(refused.reason(), HasSubstr("2 results waiting, as many as MaxWaitingResults"));
  v1::PurgeRequest purge;
  purge.set_all(true);
  Ask(&v1::Engine::Stub::PurgeResults, purge, session, 6);
  for (const std::uint64_t id : {3U, 4U}) {
    v1::AnnouncementDoneRequest done;
    done.set_session(session);
    done.set_request_id(id);
    v1::AnnouncementDoneReply reply;
    Call(&v1::Engine::Stub::AnnouncementDone, done, reply);
  }
  for (const v1::Event& event : held) {
    EXPECT_THAT(Fetch(session, event).failure().reason(),
                AnyOf(HasSubstr("was purged"), HasSubstr("no result waits under the token")));
    v1::ReleaseResultRequest release;
    release.set_session(session);
    release.set_result(event.completion().held().result());
    v1::ReleaseResultReply reply;
    Call(&v1::Engine::Stub::ReleaseResult, release, reply);
  }
  ASSERT_TRUE(RequestDepth(session, 7).has_accepted());
  EXPECT_TRUE(Fetch(session, Completions(session, 0, 7).back()).has_header());
}

TEST_F(Limits, AResultThatFindsNoRoomInThePoolFails) {
  Set("MaxResultPoolMiB", "1");
  Start();
  const std::string session = OpenId();
  WriteStrip(directory_ / "1.xyz", {.length_m = 200, .width_m = 200});
  Construct(session, 1);
  Add(session, 2, "1.xyz");
  v1::GridResultRequest request;
  // Cells without data take room like others.
  request.mutable_box()->set_east(5000);
  request.mutable_box()->set_north(5000);
  Completions(session, 0, 2);
  EXPECT_TRUE(Ask(&v1::Engine::Stub::RequestDepth, request, session, 3).has_accepted());
  const auto events = Completions(session, 0, 3);
  ASSERT_FALSE(events.empty());
  const v1::ResultChunk chunk = Fetch(session, events.back());
  EXPECT_EQ(chunk.failure().kind(), v1::Failure::OUT_OF_ROOM);
  EXPECT_THAT(chunk.failure().reason(), HasSubstr("1 MiB together (MaxResultPoolMiB"));
}

// Of those that wait there may be many.
TEST_F(Limits, NamesThatAreTooLongAreRefusedWithoutRepeatingThem) {
  Start();
  const std::string session = OpenId();
  Construct(session, 1);
  Completions(session, 0, 1);
  v1::LoadGridRequest load;
  load.set_name(std::string(256, 'g'));
  v1::ConstructGridRequest construct;
  construct.set_name(load.name());
  construct.set_resolution_m(10);
  construct.set_min_resolution_m(1);
  for (const v1::RequestReply& reply :
       {Ask(&v1::Engine::Stub::LoadGrid, load, session, 2),
        Ask(&v1::Engine::Stub::ConstructGrid, construct, session, 3)}) {
    EXPECT_EQ(reply.refused().kind(), v1::Failure::OUT_OF_ROOM);
    EXPECT_EQ(reply.refused().reason(),
              "the name of the grid has 256 bytes, more than the 255 that the engine takes");
  }
  EXPECT_EQ(Add(session, 4, std::string(4097, 'x')).refused().reason(),
            "the name of the survey file has 4097 bytes, more than the 4096 that the engine takes");
  EXPECT_TRUE(Add(session, 5, std::string(4096, 'x')).has_accepted());
  load.set_name(std::string(255, 'g'));
  EXPECT_TRUE(Ask(&v1::Engine::Stub::LoadGrid, load, session, 6).has_accepted());
  std::vector<std::uint64_t> completed;
  for (const v1::Event& event : Completions(session, 0, 6)) {
    completed.push_back(event.completion().request_id());
  }
  EXPECT_THAT(completed, ::testing::ElementsAre(1, 5, 6));
}

TEST_F(Limits, AMessageLargerThanAllowedIsRefused) {
  Set("MaxMessageMiB", "1");
  Start();
  const std::string session = OpenId();
  v1::AddLineRequest line;
  line.mutable_header()->set_session(session);
  line.mutable_header()->set_request_id(1);
  line.set_file_name(std::string(2U << 20U, 'x'));
  v1::RequestReply reply;
  const auto status = Call(&v1::Engine::Stub::AddLine, line, reply);
  EXPECT_EQ(status.error_code(), grpc::StatusCode::RESOURCE_EXHAUSTED);
}

}  // namespace
}  // namespace quarro::testing
