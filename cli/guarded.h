// A value that the console thread replaces while call-backs read it.
#pragma once

#include <mutex>
#include <utility>

namespace quarro {

// Every reader gets a copy of its own. Any thread may call any operation.
template <typename Value>
class Guarded {
 public:
  Guarded() = default;
  explicit Guarded(Value value) : value_(std::move(value)) {}

  Value Get() const {
    const std::lock_guard lock(mutex_);
    return value_;
  }

  void Set(Value value) {
    {
      const std::lock_guard lock(mutex_);
      std::swap(value_, value);
    }
    // The old value is destroyed here, outside the lock.
  }

 private:
  mutable std::mutex mutex_;
  Value value_{};  // guarded by mutex_
};

}  // namespace quarro
