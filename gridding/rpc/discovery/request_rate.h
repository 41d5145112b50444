// How many requests an engine answers in a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>

namespace quarro::rpc {

// Lets at most `per_second` requests through in any one second. Keeps the time of as many. For one
// thread.
class RequestRate {
 public:
  using Clock = std::chrono::steady_clock;

  explicit RequestRate(std::uint32_t per_second) : per_second_(per_second) {}

  // Whether a request that came at `now` is let through. `now` never goes back.
  bool Admit(Clock::time_point now) {
    while (!admitted_.empty() && now - admitted_.front() >= std::chrono::seconds(1)) {
      admitted_.pop_front();
    }
    if (admitted_.size() >= per_second_) return false;
    admitted_.push_back(now);
    return true;
  }

 private:
  const std::size_t per_second_;
  std::deque<Clock::time_point> admitted_;  // within the last second
};

}  // namespace quarro::rpc
