#include "gridding/rpc/engine_service.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <set>
#include <type_traits>

#include "engine/exceptions.h"
#include "gridding/rpc/message_forms.h"
#include "gridding/rpc/peer.h"
#include "gridding/rpc/protocol.h"
#include "gridding/rpc/result_wire.h"
#include "gridding/service/failures.h"

namespace quarro::rpc {

using service::GridSession;
using service::RequestKind;

namespace {

// How long a client that closes its session is kept waiting for the end of its work.
constexpr std::chrono::milliseconds kLongestWait{4000};

// Requests are limited by their number, so none of those that wait may be large; no file or grid
// has a longer name.
constexpr std::size_t kLongestFileName = 4096;
constexpr std::size_t kLongestGridName = 255;

// Throws ExSGCServerResources for a name of more bytes than it may have. The name itself is no part
// of the reason, which is kept for requests that are sent again.
void CheckLength(const std::string& name, const char* whose, std::size_t most) {
  if (name.size() <= most) return;
  throw ExSGCServerResources(std::string("the name of the ") + whose + " has " +
                             std::to_string(name.size()) + " bytes, more than the " +
                             std::to_string(most) + " that the engine takes");
}

}  // namespace

EngineService::EngineService(SessionTable& sessions, std::uint32_t reconnect_seconds)
    : sessions_(sessions), reconnect_seconds_(reconnect_seconds) {}

template <typename Act>
grpc::Status EngineService::WithSession(const Context& context, const std::string& id,
                                        const Act& act) const {
  try {
    const auto session = sessions_.Find(id, IdentityOf(context));
    if (!session) return {grpc::StatusCode::NOT_FOUND, "the engine does not know the session"};
    if constexpr (std::is_same_v<decltype(act(*session)), Status>) {
      return act(*session);
    } else {
      act(*session);
      return Status::OK;
    }
  } catch (...) {
    return {grpc::StatusCode::INTERNAL, Utf8(service::ReasonOf(std::current_exception()))};
  }
}

template <typename Request, typename Ask>
grpc::Status EngineService::Carry(const Context& context, const Request& request,
                                  v1::RequestReply& reply, RequestKind kind, const Ask& ask) const {
  return WithSession(context, request.header().session(), [&](Session& session) {
    Session::Operation operation{kind, ""};
    if constexpr (std::is_same_v<Request, v1::ConstructGridRequest> ||
                  std::is_same_v<Request, v1::LoadGridRequest>) {
      operation.grid = request.name();
    }
    reply = session.Carry(request.header().request_id(), operation, ask);
  });
}

grpc::Status EngineService::OpenSession(Context* context, const v1::OpenSessionRequest* request,
                                        v1::OpenSessionReply* reply) {
  try {
    if (request->protocol_version() != kProtocolVersion) {
      reply->mutable_refused()->set_reason(
          VersionMismatch(request->protocol_version(), kProtocolVersion));
      return Status::OK;
    }
    const SessionTable::Opened opened =
        sessions_.Open(PeerText(context->peer()), IdentityOf(*context));
    v1::OpenedSession& message = *reply->mutable_opened();
    message.set_session(opened.id);
    message.set_protocol_version(kProtocolVersion);
    message.set_engine_version(kEngineVersion);
    message.set_threads(sessions_.host().engine.threads);
    message.set_reconnect_seconds(reconnect_seconds_);
  } catch (...) {
    *reply->mutable_refused() = ToMessage(std::current_exception());
  }
  return Status::OK;
}

grpc::Status EngineService::CloseSession(Context* context, const v1::CloseSessionRequest* request,
                                         v1::CloseSessionReply* reply) {
  return WithSession(*context, request->session(), [&](Session& session) {
    session.BeginEnd("", false);
    const auto patience = std::min(std::chrono::milliseconds(request->wait_ms()), kLongestWait);
    const bool finished = session.WaitUntilEnded(Session::Clock::now() + patience);
    reply->set_finished(finished);
    if (finished) sessions_.Forget(request->session());
  });
}

grpc::Status EngineService::Completions(Context* context, const v1::CompletionsRequest* request,
                                        grpc::ServerWriter<v1::Event>* writer) {
  return WithSession(*context, request->session(), [&](Session& session) {
    const std::uint64_t claim = session.BeginStream();
    v1::Event event;
    event.mutable_resumed();
    std::uint64_t sequence = request->after_sequence();
    session.log().Acknowledge(sequence);
    bool wanted = writer->Write(event);
    Status status = Status::OK;
    while (wanted && !context->IsCancelled()) {
      if (!session.HasStream(claim)) {
        status = {grpc::StatusCode::ABORTED, "another stream of this session took over"};
        break;
      }
      const auto outcome = session.log().Next(sequence, event);
      if (outcome == CompletionLog::Outcome::kEnd) break;
      if (outcome == CompletionLog::Outcome::kNothingYet) continue;
      sequence = event.sequence();
      wanted = writer->Write(event);
    }
    session.EndStream(claim);
    return status;
  });
}

grpc::Status EngineService::Acknowledge(Context* context, const v1::AcknowledgeRequest* request,
                                        v1::AcknowledgeReply* /*reply*/) {
  return WithSession(*context, request->session(), [&](Session& session) {
    session.log().Acknowledge(request->through_sequence());
  });
}

grpc::Status EngineService::FetchResult(Context* context, const v1::FetchResultRequest* request,
                                        grpc::ServerWriter<v1::ResultChunk>* writer) {
  return WithSession(*context, request->session(), [&](Session& session) {
    v1::ResultChunk chunk;
    try {
      const Session::Held held = session.Fetch(request->result());
      if (!held.result) held.failure->Throw();
      SendResult(*held.result, [&](const v1::ResultChunk& part) { return writer->Write(part); });
      return;
    } catch (...) {
      *chunk.mutable_failure() = ToMessage(std::current_exception());
    }
    writer->Write(chunk);
  });
}

grpc::Status EngineService::ReleaseResult(Context* context, const v1::ReleaseResultRequest* request,
                                          v1::ReleaseResultReply* /*reply*/) {
  return WithSession(*context, request->session(),
                     [&](Session& session) { session.Release(request->result()); });
}

grpc::Status EngineService::AnnouncementDone(Context* context,
                                             const v1::AnnouncementDoneRequest* request,
                                             v1::AnnouncementDoneReply* /*reply*/) {
  return WithSession(*context, request->session(),
                     [&](Session& session) { session.AnnouncementDone(request->request_id()); });
}

grpc::Status EngineService::SetLogLevel(Context* context, const v1::SetLogLevelRequest* request,
                                        v1::SetLogLevelReply* reply) {
  return WithSession(*context, request->session(), [&](Session& session) {
    reply->set_set(session.SetLogLevel(request->level()));
  });
}

grpc::Status EngineService::RequestServerStatistics(Context* context,
                                                    const v1::StatisticsRequest* request,
                                                    v1::RequestReply* reply) {
  return Carry(*context, *request, *reply, RequestKind::kStatistics,
               [](GridSession& session, const ResultCallback& on_done) {
                 session.RequestServerStatistics(on_done);
               });
}

grpc::Status EngineService::DebugCell(Context* context, const v1::DebugCellRequest* request,
                                      v1::RequestReply* reply) {
  return Carry(*context, *request, *reply, RequestKind::kTrace,
               [&](GridSession& session, const ResultCallback& on_done) {
                 session.DebugCell(request->column(), request->row(), request->on(), on_done);
               });
}

grpc::Status EngineService::DebugAt(Context* context, const v1::DebugAtRequest* request,
                                    v1::RequestReply* reply) {
  return Carry(*context, *request, *reply, RequestKind::kTrace,
               [&](GridSession& session, const ResultCallback& on_done) {
                 session.DebugAt(request->easting_m(), request->northing_m(), request->on(),
                                 on_done);
               });
}

grpc::Status EngineService::DebugOffEverywhere(Context* context, const v1::DebugOffRequest* request,
                                               v1::RequestReply* reply) {
  return Carry(*context, *request, *reply, RequestKind::kTrace,
               [](GridSession& session, const ResultCallback& on_done) {
                 session.DebugOffEverywhere(on_done);
               });
}

grpc::Status EngineService::RequestQuery(Context* context, const v1::QueryRequest* request,
                                         v1::RequestReply* reply) {
  return Carry(*context, *request, *reply, RequestKind::kQuery,
               [&](GridSession& session, const ResultCallback& on_done) {
                 session.RequestQuery(request->kind(), on_done);
               });
}

grpc::Status EngineService::PurgeResults(Context* context, const v1::PurgeRequest* request,
                                         v1::RequestReply* reply) {
  return Carry(*context, *request, *reply, RequestKind::kPurge,
               [&](GridSession& session, const ResultCallback& on_done) {
                 if (request->all()) {
                   session.PurgeAllResults(on_done);
                 } else {
                   session.PurgeResults(std::set<std::uint32_t>(request->result_numbers().begin(),
                                                                request->result_numbers().end()),
                                        on_done);
                 }
               });
}

grpc::Status EngineService::ConstructGrid(Context* context, const v1::ConstructGridRequest* request,
                                          v1::RequestReply* reply) {
  return Carry(*context, *request, *reply, RequestKind::kOpenGrid,
               [&](GridSession& session, const ResultCallback& on_done) {
                 CheckLength(request->name(), "grid", kLongestGridName);
                 session.ConstructGrid(request->name(), request->resolution_m(),
                                       request->min_resolution_m(), on_done);
               });
}

grpc::Status EngineService::LoadGrid(Context* context, const v1::LoadGridRequest* request,
                                     v1::RequestReply* reply) {
  return Carry(*context, *request, *reply, RequestKind::kOpenGrid,
               [&](GridSession& session, const ResultCallback& on_done) {
                 CheckLength(request->name(), "grid", kLongestGridName);
                 session.LoadGrid(request->name(), on_done);
               });
}

grpc::Status EngineService::AddLine(Context* context, const v1::AddLineRequest* request,
                                    v1::RequestReply* reply) {
  return Carry(*context, *request, *reply, RequestKind::kLine,
               [&](GridSession& session, const ResultCallback& on_done) {
                 CheckLength(request->file_name(), "survey file", kLongestFileName);
                 session.AddLine(request->file_name(), request->line_id(), request->rendezvous(),
                                 on_done);
               });
}

grpc::Status EngineService::RequestResolution(Context* context,
                                              const v1::GridResultRequest* request,
                                              v1::RequestReply* reply) {
  return Carry(*context, *request, *reply, RequestKind::kResolution,
               [&](GridSession& session, const ResultCallback& on_done) {
                 session.RequestResolution(FromMessage(request->box()), request->result_number(),
                                           on_done);
               });
}

grpc::Status EngineService::RequestDepth(Context* context, const v1::GridResultRequest* request,
                                         v1::RequestReply* reply) {
  return Carry(*context, *request, *reply, RequestKind::kDepth,
               [&](GridSession& session, const ResultCallback& on_done) {
                 session.RequestDepth(FromMessage(request->box()), request->result_number(),
                                      request->full_resolution(), on_done);
               });
}

grpc::Status EngineService::RequestHypotheses(Context* context,
                                              const v1::GridResultRequest* request,
                                              v1::RequestReply* reply) {
  return Carry(*context, *request, *reply, RequestKind::kHypotheses,
               [&](GridSession& session, const ResultCallback& on_done) {
                 session.RequestHypotheses(FromMessage(request->box()), request->result_number(),
                                           request->full_resolution(), on_done);
               });
}

grpc::Status EngineService::DropGrid(Context* context, const v1::DropGridRequest* request,
                                     v1::RequestReply* reply) {
  return Carry(*context, *request, *reply, RequestKind::kDropGrid,
               [&](GridSession& session, const ResultCallback& on_done) {
                 session.DropGrid(request->asap(), on_done);
               });
}

grpc::Status EngineService::SynchGrid(Context* context, const v1::SynchGridRequest* request,
                                      v1::RequestReply* reply) {
  return Carry(
      *context, *request, *reply, RequestKind::kSynchGrid,
      [](GridSession& session, const ResultCallback& on_done) { session.SynchGrid(on_done); });
}

grpc::Status EngineService::RefineGrid(Context* context, const v1::RefineGridRequest* request,
                                       v1::RequestReply* reply) {
  return Carry(*context, *request, *reply, RequestKind::kRefineGrid,
               [&](GridSession& session, const ResultCallback& on_done) {
                 session.RefineGrid(request->threads(), on_done);
               });
}

}  // namespace quarro::rpc
