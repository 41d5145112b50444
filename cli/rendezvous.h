// Where a command waits for the call-back that ends its request.
#pragma once

#include <condition_variable>
#include <mutex>

namespace quarro {

// The waiting side calls Reset before it sends the request and Wait after it, so that an answer
// that comes in between is not lost. One waiter at a time; any thread may signal.
class Rendezvous {
 public:
  void Reset() {
    const std::lock_guard lock(mutex_);
    done_ = false;
  }

  void Signal(bool success) {
    const std::lock_guard lock(mutex_);
    done_ = true;
    success_ = success;
    condition_.notify_all();
  }

  // Blocks without time limit until Signal was called since the last Reset; gives what it reported.
  bool Wait() {
    std::unique_lock lock(mutex_);
    condition_.wait(lock, [this] { return done_; });
    return success_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
  bool done_ = false;     // guarded by mutex_
  bool success_ = false;  // guarded by mutex_
};

}  // namespace quarro
