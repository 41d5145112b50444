#include "gridding/rpc/completion_log.h"

#include <chrono>
#include <utility>

namespace quarro::rpc {

namespace {

// How long a stream waits before it looks whether its client is still there.
constexpr std::chrono::milliseconds kMoment{250};

}  // namespace

void CompletionLog::Append(v1::Event event) {
  {
    const std::lock_guard lock(mutex_);
    if (ended_) return;
    Keep(std::move(event));
  }
  changed_.notify_all();
}

// With the lock held.
void CompletionLog::Keep(v1::Event event) {
  event.set_sequence(++last_sequence_);
  bytes_ += event.ByteSizeLong();
  events_.push_back(std::move(event));
}

std::uint64_t CompletionLog::bytes() const {
  const std::lock_guard lock(mutex_);
  return bytes_;
}

void CompletionLog::End(const std::string& reason) {
  v1::Event event;
  event.mutable_end()->set_reason(reason);
  {
    const std::lock_guard lock(mutex_);
    if (ended_) return;
    Keep(std::move(event));
    ended_ = true;
  }
  changed_.notify_all();
}

void CompletionLog::Acknowledge(std::uint64_t through_sequence) {
  const std::lock_guard lock(mutex_);
  while (!events_.empty() && events_.front().sequence() <= through_sequence) {
    bytes_ -= events_.front().ByteSizeLong();
    events_.pop_front();
  }
}

CompletionLog::Outcome CompletionLog::Next(std::uint64_t sequence, v1::Event& event) {
  std::unique_lock lock(mutex_);
  const std::uint64_t wakes = wakes_;
  changed_.wait_for(lock, kMoment,
                    [&] { return last_sequence_ > sequence || ended_ || wakes_ != wakes; });
  if (last_sequence_ <= sequence) return ended_ ? Outcome::kEnd : Outcome::kNothingYet;
  if (events_.empty() || events_.back().sequence() <= sequence) return Outcome::kNothingYet;
  // A client that asks again for what it acknowledged gets what is left.
  const std::uint64_t first = events_.front().sequence();
  event = events_[sequence + 1 > first ? sequence + 1 - first : 0];
  return Outcome::kEvent;
}

void CompletionLog::Wake() {
  {
    const std::lock_guard lock(mutex_);
    ++wakes_;
  }
  changed_.notify_all();
}

}  // namespace quarro::rpc
