// The thread that reads a session's events.
#include <algorithm>

#include "engine/exceptions.h"
#include "gridding/remote/engine_link.h"
#include "gridding/service/engine_log.h"

namespace quarro::remote {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kEventsToAcknowledge = 128;
constexpr std::chrono::seconds kAcknowledgeDeadline{2};
constexpr std::chrono::milliseconds kConnectionSlice{200};
constexpr std::chrono::milliseconds kBetweenStreams{100};

}  // namespace

void EngineLink::Start(std::shared_ptr<Outstanding> outstanding) {
  outstanding_ = std::move(outstanding);
  reading_ = true;
  reader_ = std::thread([this] {
    ReadEvents();
    {
      const std::lock_guard lock(mutex_);
      reading_ = false;
    }
    changed_.notify_all();
  });
}

namespace {

// By the network or the engine's end, not by what was sent.
bool BrokeOnTheWay(const grpc::Status& status) {
  const grpc::StatusCode code = status.error_code();
  return status.ok() || code == grpc::StatusCode::UNAVAILABLE ||
         code == grpc::StatusCode::CANCELLED || code == grpc::StatusCode::ABORTED;
}

}  // namespace

void EngineLink::ReadEvents() {
  const std::chrono::seconds allowance(settings_.reconnect_seconds);
  Clock::time_point until = Clock::now() + allowance;
  for (;;) {
    bool was_connected = false;
    const std::uint64_t before = last_sequence_;
    const grpc::Status status = ReadStream(was_connected);
    {
      const std::lock_guard lock(mutex_);
      if (closing_ || lost_) return;
    }
    if (session_ended_) return;
    if (status.error_code() == grpc::StatusCode::NOT_FOUND) {
      Lose("it does not know the session any more", Session::kOver);
      return;
    }
    // A stream that breaks at the same event each time is no connection.
    if (was_connected && (BrokeOnTheWay(status) || last_sequence_ != before)) {
      until = Clock::now() + allowance;
      // Seen by default: a console that stands still for so long says why.
      service::LogEngine(service::kLogRefusal,
                         "the connection to the engine at " + address_ + " broke (" +
                             status.error_message() + "): it is tried again for " +
                             std::to_string(settings_.reconnect_seconds) + " s");
    }
    if (!WaitForConnection(until)) {
      Lose("no connection for " + std::to_string(settings_.reconnect_seconds) + " s",
           Session::kLives);
      return;
    }
    if (!Pause(kBetweenStreams)) return;
  }
}

grpc::Status EngineLink::ReadStream(bool& was_connected) {
  ActiveCall call(*this);
  v1::CompletionsRequest request;
  request.set_session(session_);
  request.set_after_sequence(last_sequence_);
  const auto stream = stub_->Completions(&call.context, request);
  v1::Event event;
  while (stream->Read(&event)) {
    was_connected = true;
    Take(event);
    AcknowledgeNowAndThen();
  }
  return stream->Finish();
}

void EngineLink::Take(const v1::Event& event) {
  if (event.has_resumed()) {
    acknowledged_ = last_sequence_;
    return;
  }
  if (event.sequence() <= last_sequence_) return;
  last_sequence_ = event.sequence();
  if (event.has_log()) {
    service::LogEngine(event.log().level(), event.log().text());
  } else if (event.has_completion()) {
    outstanding_->Complete(event.completion());
  } else if (event.has_end()) {
    session_ended_ = true;
    // Without a reason it was this side that closed the session.
    if (!event.end().reason().empty()) Lose(event.end().reason(), Session::kOver);
  }
}

// The engine keeps events until then.
void EngineLink::AcknowledgeNowAndThen() {
  if (last_sequence_ - acknowledged_ < kEventsToAcknowledge) return;
  acknowledged_ = last_sequence_;
  v1::AcknowledgeRequest request;
  request.set_session(session_);
  request.set_through_sequence(last_sequence_);
  v1::AcknowledgeReply reply;
  ActiveCall call(*this);
  call.context.set_deadline(std::chrono::system_clock::now() + kAcknowledgeDeadline);
  // One that is lost is made up for by the next.
  stub_->Acknowledge(&call.context, request, &reply);
}

// False when there is none when the time is over, true also when nobody wants it any more.
bool EngineLink::WaitForConnection(Clock::time_point until) {
  for (;;) {
    {
      const std::lock_guard lock(mutex_);
      if (closing_ || lost_) return true;
    }
    const auto now = Clock::now();
    if (now >= until) return false;
    const auto slice = std::min<Clock::duration>(kConnectionSlice, until - now);
    if (channel_->WaitForConnected(
            std::chrono::system_clock::now() +
            std::chrono::duration_cast<std::chrono::system_clock::duration>(slice))) {
      return true;
    }
  }
}

void EngineLink::Lose(const std::string& reason, Session session) {
  std::string text;
  {
    const std::lock_guard lock(mutex_);
    if (lost_) return;
    lost_ = "the engine at " + address_ + " is lost: " + reason;
    session_over_ = session == Session::kOver;
    text = *lost_;
    for (grpc::ClientContext* context : active_) context->TryCancel();
  }
  changed_.notify_all();
  service::LogEngine(service::kLogError, text);
  if (outstanding_) outstanding_->Lose(text);
}

}  // namespace quarro::remote
