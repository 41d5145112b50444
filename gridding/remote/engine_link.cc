// Opening, calling and closing; engine_link_events.cc has the reading thread.
#include "gridding/remote/engine_link.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "engine/exceptions.h"
#include "gridding/rpc/credentials.h"
#include "gridding/rpc/message_forms.h"
#include "gridding/rpc/peer.h"
#include "gridding/rpc/protocol.h"
#include "gridding/rpc/result_wire.h"

namespace quarro::remote {

namespace {

constexpr std::chrono::seconds kOpenDeadline{10};
constexpr std::chrono::seconds kCallDeadline{5};
constexpr std::chrono::seconds kCloseDeadline{6};
constexpr std::uint32_t kWaitAtClose_ms = 4000;
// For an engine that was lost, which may be gone for good.
constexpr std::chrono::milliseconds kReachDeadline{2000};
constexpr std::uint32_t kWaitAtCloseOfLost_ms = 1500;
constexpr std::chrono::seconds kLastEventsWait{2};
constexpr std::chrono::milliseconds kBetweenAttempts{50};
constexpr std::uint64_t kHeapBytes = std::uint64_t{16} << 20U;

grpc::ChannelArguments ArgumentsFor(const rpc::NetworkSettings& settings) {
  grpc::ChannelArguments arguments;
  const auto interval = static_cast<int>(rpc::kPingInterval.count());
  arguments.SetInt(GRPC_ARG_KEEPALIVE_TIME_MS, interval);
  arguments.SetInt(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, static_cast<int>(rpc::kPingTimeout.count()));
  arguments.SetInt(GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 1);
  arguments.SetInt(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
  arguments.SetInt(GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, 100);
  arguments.SetInt(GRPC_ARG_MIN_RECONNECT_BACKOFF_MS, 3000);
  arguments.SetInt(GRPC_ARG_MAX_RECONNECT_BACKOFF_MS, 1000);
  // Engines are on this network; and each link has a connection of its own.
  arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
  arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
  // Chunks of results come in few frames.
  arguments.SetInt(GRPC_ARG_HTTP2_MAX_FRAME_SIZE, static_cast<int>(rpc::kChunkBytes));
  arguments.SetInt(GRPC_ARG_HTTP2_STREAM_LOOKAHEAD_BYTES, static_cast<int>(4 * rpc::kChunkBytes));
  arguments.SetMaxReceiveMessageSize(static_cast<int>(16 * rpc::kChunkBytes));
  if (settings.UsesTls()) {
    arguments.SetString(GRPC_SSL_TARGET_NAME_OVERRIDE_ARG, rpc::kServerName);
  }
  return arguments;
}

// With what to look at: the cause is often told in terms of the connection alone.
std::string NotReached(bool uses_tls, const std::string& cause) {
  if (!uses_tls) {
    return "cannot be reached with plain text: " + cause +
           " (is it up? One that wants certificates needs CertificateAuthority, Certificate and "
           "PrivateKey of section Network)";
  }
  return "cannot be reached with the certificates of section Network: " + cause +
         " (is it up, with a certificate of the same authority, made for an engine "
         "(script/certificates)? One without certificates wants a client without "
         "CertificateAuthority, Certificate and PrivateKey of section Network)";
}

}  // namespace

EngineLink::EngineLink(const rpc::NetworkSettings& settings, std::string address,
                       std::filesystem::path spool_directory)
    : settings_(settings),
      address_(std::move(address)),
      spool_directory_(std::move(spool_directory)),
      channel_(grpc::CreateCustomChannel(address_, rpc::ChannelCredentialsFor(settings),
                                         ArgumentsFor(settings))),
      stub_(v1::Engine::NewStub(channel_)) {
  OpenSession();
}

EngineLink::~EngineLink() = default;

void EngineLink::OpenSession() {
  v1::OpenSessionRequest request;
  request.set_protocol_version(rpc::kProtocolVersion);
  v1::OpenSessionReply reply;
  grpc::ClientContext context;
  context.set_deadline(std::chrono::system_clock::now() + kOpenDeadline);
  const grpc::Status status = stub_->OpenSession(&context, request, &reply);
  if (status.error_code() == grpc::StatusCode::UNIMPLEMENTED) {
    throw ExSGClientBase("what listens at " + address_ + " is no engine of protocol version " +
                         std::to_string(rpc::kProtocolVersion));
  }
  if (!status.ok()) throw ExSGClientBase(NotReached(settings_.UsesTls(), status.error_message()));
  if (reply.has_refused()) std::rethrow_exception(rpc::FromMessage(reply.refused()));
  if (reply.opened().protocol_version() != rpc::kProtocolVersion) {
    throw ExSGClientBase(
        rpc::VersionMismatch(rpc::kProtocolVersion, reply.opened().protocol_version()));
  }
  session_ = reply.opened().session();
}

void EngineLink::ThrowIfLost() {
  const std::lock_guard lock(mutex_);
  if (lost_) throw ExSGClientBase(*lost_);
}

// Waits, unless the engine is lost or the link closed. False when it is.
bool EngineLink::Pause(std::chrono::milliseconds time) {
  std::unique_lock lock(mutex_);
  return !changed_.wait_for(lock, time, [this] { return lost_ || closing_; });
}

void EngineLink::CallAgainAndAgain(const Attempt& attempt) {
  for (;;) {
    ThrowIfLost();
    grpc::Status status;
    {
      ActiveCall call(*this);
      call.context.set_wait_for_ready(true);
      call.context.set_deadline(std::chrono::system_clock::now() + kCallDeadline);
      status = attempt(call.context);
    }
    if (status.ok()) return;
    if (IsWorthAnother(status)) Pause(kBetweenAttempts);
  }
}

bool EngineLink::IsWorthAnother(const grpc::Status& status) {
  ThrowIfLost();
  switch (status.error_code()) {
    case grpc::StatusCode::UNAVAILABLE:
    case grpc::StatusCode::DEADLINE_EXCEEDED:
    case grpc::StatusCode::CANCELLED:
      return true;
    case grpc::StatusCode::NOT_FOUND:
      Lose("it does not know the session any more", Session::kOver);
      ThrowIfLost();
      return false;
    case grpc::StatusCode::RESOURCE_EXHAUSTED:
      throw ExSGCServerResources("the engine at " + address_ + " takes no message of this size (" +
                                 status.error_message() +
                                 "): MaxMessageMiB of section Network limits it");
    default:
      throw ExSGClientBase("the engine at " + address_ + ": " + status.error_message());
  }
}

std::unique_ptr<SEBaseResult> EngineLink::Fetch(std::uint32_t result) {
  for (;;) {
    ThrowIfLost();
    grpc::Status status;
    std::unique_ptr<SEBaseResult> fetched;
    std::exception_ptr failure;
    {
      ActiveCall call(*this);
      call.context.set_wait_for_ready(true);
      try {
        fetched = FetchOnce(call.context, result, status);
      } catch (...) {
        failure = std::current_exception();
      }
    }
    if (!status.ok() && IsWorthAnother(status)) {
      Pause(kBetweenAttempts);
      continue;
    }
    Release(result);
    if (failure) std::rethrow_exception(failure);
    return fetched;
  }
}

void EngineLink::Release(std::uint32_t result) {
  v1::ReleaseResultRequest request;
  request.set_session(session_);
  request.set_result(result);
  try {
    Call(&v1::Engine::Stub::ReleaseResult, request);
  } catch (const ExSGClientBase&) {
    // The engine is lost, and the result there with it; here it is complete.
  }
}

std::unique_ptr<SEBaseResult> EngineLink::FetchOnce(grpc::ClientContext& context,
                                                    std::uint32_t result, grpc::Status& status) {
  v1::FetchResultRequest request;
  request.set_session(session_);
  request.set_result(result);
  const auto stream = stub_->FetchResult(&context, request);
  try {
    auto fetched = rpc::ReceiveResult([&](v1::ResultChunk& chunk) { return stream->Read(&chunk); },
                                      spool_directory_, kHeapBytes);
    status = stream->Finish();
    return fetched;
  } catch (...) {
    // A failure that came in whole stands; a broken stream shows in its status.
    v1::ResultChunk rest;
    bool cancelled_here = false;
    while (stream->Read(&rest)) {
      context.TryCancel();
      cancelled_here = true;
    }
    status = stream->Finish();
    if (cancelled_here && status.error_code() == grpc::StatusCode::CANCELLED) {
      status = grpc::Status::OK;
    }
    throw;
  }
}

void EngineLink::AnnouncementDone(std::uint64_t request_id) {
  v1::AnnouncementDoneRequest request;
  request.set_session(session_);
  request.set_request_id(request_id);
  try {
    Call(&v1::Engine::Stub::AnnouncementDone, request);
  } catch (const ExSGClientBase&) {
    // The engine is lost: it waits for nothing any more.
  }
}

bool EngineLink::EndSession(bool wait, bool was_lost) {
  v1::CloseSessionRequest request;
  request.set_session(session_);
  request.set_wait_ms(!wait ? 0 : was_lost ? kWaitAtCloseOfLost_ms : kWaitAtClose_ms);
  const auto reached_by = std::chrono::system_clock::now() + kReachDeadline;
  // One that meets a break which nobody noticed yet fails; the next goes over a new connection.
  for (int attempt = 0; attempt < 2; ++attempt) {
    grpc::experimental::ChannelResetConnectionBackoff(channel_.get());
    if (!channel_->WaitForConnected(reached_by)) return false;
    v1::CloseSessionReply reply;
    grpc::ClientContext context;
    context.set_wait_for_ready(true);
    context.set_deadline(std::chrono::system_clock::now() +
                         (was_lost ? kReachDeadline : kCloseDeadline));
    const grpc::Status status = stub_->CloseSession(&context, request, &reply);
    if (status.ok()) return reply.finished();
    if (status.error_code() != grpc::StatusCode::UNAVAILABLE) return false;
  }
  return false;
}

void EngineLink::Close(bool wait) {
  bool lost = false;
  bool over = false;
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
    lost = lost_.has_value();
    over = session_over_;
  }
  changed_.notify_all();
  const bool finished = !over && EndSession(wait, lost);
  {
    std::unique_lock lock(mutex_);
    // The last messages of a session that is over are on their way.
    if (finished) changed_.wait_for(lock, kLastEventsWait, [this] { return !reading_; });
    if (!lost_) lost_ = "the engine was detached";
    for (grpc::ClientContext* context : active_) context->TryCancel();
  }
  changed_.notify_all();
  if (reader_.joinable()) reader_.join();
}

}  // namespace quarro::remote
