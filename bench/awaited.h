// The answers of an engine, one at a time.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>

#include "engine/result_token.h"

namespace quarro {

// Outlives the requests that hold its call-back.
class Awaited {
 public:
  ResultCallback Callback() {
    return [this](const SEResultToken& token) {
      const std::lock_guard lock(mutex_);
      tokens_.push_back(token);
      arrived_.notify_one();
    };
  }
  // The token of the earliest answer that was not waited for.
  SEResultToken Wait() {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [this] { return !tokens_.empty(); });
    const SEResultToken token = tokens_.front();
    tokens_.pop_front();
    return token;
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<SEResultToken> tokens_;  // guarded by mutex_
};

}  // namespace quarro
