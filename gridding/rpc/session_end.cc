// A session's connection to its client, and its end.
#include <algorithm>

#include "gridding/rpc/session.h"

namespace quarro::rpc {

namespace {

// What a client has at least between opening a session and reading its events.
constexpr std::chrono::seconds kFirstStream{10};

}  // namespace

std::uint64_t Session::BeginStream() {
  std::uint64_t claim = 0;
  {
    const std::lock_guard lock(mutex_);
    connected_ = true;
    claim = ++stream_claim_;
  }
  log_.Wake();  // whoever streamed before
  return claim;
}

bool Session::HasStream(std::uint64_t claim) const {
  const std::lock_guard lock(mutex_);
  return claim == stream_claim_;
}

void Session::EndStream(std::uint64_t claim) {
  const std::lock_guard lock(mutex_);
  if (claim != stream_claim_) return;
  connected_ = false;
  away_since_ = Clock::now();
}

bool Session::Abandoned(Clock::duration allowance) const {
  const std::lock_guard lock(mutex_);
  // A client that has just opened the session is on its way to the events.
  if (stream_claim_ == 0) allowance = std::max<Clock::duration>(allowance, kFirstStream);
  return !connected_ && Clock::now() - away_since_ > allowance;
}

std::optional<Session::Clock::duration> Session::TimeToComeBack(Clock::duration allowance) const {
  const std::lock_guard lock(mutex_);
  if (connected_ || stream_claim_ == 0) return std::nullopt;
  return std::max(allowance - (Clock::now() - away_since_), Clock::duration::zero());
}

void Session::BeginEnd(const char* reason, bool at_once) {
  const std::lock_guard request_lock(request_mutex_);
  bool first = false;
  {
    const std::lock_guard lock(mutex_);
    first = !ending_;
    ending_ = true;
    if (first) end_reason_ = reason;
  }
  changed_.notify_all();
  if (at_once) grid_session_->CancelAll(reason);
  if (!first) return;
  finisher_ = std::thread([this, reason] {
    grid_session_->Finish();
    log_.End(reason);
    {
      const std::lock_guard lock(mutex_);
      ended_ = true;
      held_.clear();
    }
    changed_.notify_all();
  });
}

bool Session::Ending() const {
  const std::lock_guard lock(mutex_);
  return ending_;
}

bool Session::Ended() const {
  const std::lock_guard lock(mutex_);
  return ended_;
}

bool Session::WaitUntilEnded(Clock::time_point until) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_until(lock, until, [this] { return ended_; });
}

Session::~Session() {
  BeginEnd("", false);
  finisher_.join();
}

}  // namespace quarro::rpc
