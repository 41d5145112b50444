// The events of one session on their way to its client.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "gridding/rpc/quarro_v1.pb.h"

namespace quarro::rpc {

// Numbers the events and keeps each until the client has acknowledged it, so that a client that
// lost its connection can have them again. Any thread may call anything.
class CompletionLog {
 public:
  // Nothing is taken after the end.
  void Append(v1::Event event);
  // Appends a SessionEnd, after which there is nothing; `reason` is for the client. Once.
  void End(const std::string& reason);
  // Forgets the events up to this one.
  void Acknowledge(std::uint64_t through_sequence);

  enum class Outcome { kEvent, kNothingYet, kEnd };
  // Copies the event after `sequence` into `event`. Waits for it until something calls Wake, at
  // most a moment. kEnd: there is none and none will come.
  Outcome Next(std::uint64_t sequence, v1::Event& event);
  void Wake();
  // What the events kept take as messages.
  std::uint64_t bytes() const;

 private:
  void Keep(v1::Event event);

  mutable std::mutex mutex_;  // guards all below
  std::condition_variable changed_;
  std::deque<v1::Event> events_;  // not yet acknowledged, without gaps
  std::uint64_t bytes_ = 0;
  std::uint64_t last_sequence_ = 0;
  std::uint64_t wakes_ = 0;
  bool ended_ = false;
};

}  // namespace quarro::rpc
