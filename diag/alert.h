// Wakes a thread that waits for a call-back, and hands it a status.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace quarro {

// Any thread may call anything.
class Alert {
 public:
  void Reset() {
    const std::scoped_lock lock(mutex_);
    alerted_ = false;
  }

  void Signal(std::uint8_t status) {
    const std::scoped_lock lock(mutex_);
    alerted_ = true;
    status_ = status;
    condition_.notify_all();
  }

  // Returns the status of the signal that came since the last reset, once there is one.
  std::uint8_t Wait() {
    std::unique_lock lock(mutex_);
    condition_.wait(lock, [this] { return alerted_; });
    return status_;
  }

 private:
  std::mutex mutex_;
  // Guarded by mutex_.
  bool alerted_ = false;
  std::uint8_t status_ = 0;
  std::condition_variable condition_;
};

}  // namespace quarro
