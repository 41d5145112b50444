// Bodies of tasks whose hand-over between threads a thread sanitizer can follow.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#if defined(__SANITIZE_THREAD__)
#define QUARRO_UNSEEN __attribute__((no_sanitize_thread))
#define QUARRO_SEEN __attribute__((noinline))
#else
#define QUARRO_UNSEEN
#define QUARRO_SEEN
#endif

namespace quarro::service {

// The library that runs tasks orders what its threads read and write, but comes without
// instrumentation, so that a sanitizer takes it for unordered. What a thread did before it crosses
// here is seen as done before what another does after it crosses later. Any thread.
class HandOver {
 public:
  QUARRO_SEEN void Cross() {
    // Reading first: the counter itself was made by another thread.
    crossed_.load(std::memory_order_acquire);
    crossed_.fetch_add(1, std::memory_order_acq_rel);
  }

 private:
  std::atomic<std::uint64_t> crossed_ = 0;
};

// Calls `body` as a task, between two crossings. Both references must outlive this, which the
// library copies from thread to thread.
template <typename Body>
class TaskBody {
 public:
  TaskBody(HandOver& hand_over, const Body& body) : hand_over_(&hand_over), body_(&body) {}

  template <typename... Arguments>
  QUARRO_UNSEEN auto operator()(Arguments&&... arguments) const {
    const Crossing crossing(hand_over_);
    return (*body_)(std::forward<Arguments>(arguments)...);
  }

 private:
  class Crossing {
   public:
    QUARRO_UNSEEN explicit Crossing(HandOver* hand_over) : hand_over_(hand_over) {
      hand_over_->Cross();
    }
    QUARRO_UNSEEN ~Crossing() { hand_over_->Cross(); }
    Crossing(const Crossing&) = delete;
    Crossing& operator=(const Crossing&) = delete;

   private:
    HandOver* hand_over_;
  };

  HandOver* hand_over_;
  const Body* body_;
};

}  // namespace quarro::service

#undef QUARRO_SEEN
#undef QUARRO_UNSEEN
