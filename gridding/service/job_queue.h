// Jobs waiting for a thread of the engine.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "gridding/service/request.h"

namespace quarro::service {

// Tells a job that it is to end early.
class CancelFlag {
 public:
  void Set() { set_.store(true, std::memory_order_relaxed); }
  bool IsSet() const { return set_.load(std::memory_order_relaxed); }

 private:
  std::atomic<bool> set_ = false;
};

// Throws ExSGClientBase when the flag is set.
void ThrowIfCancelled(const CancelFlag& cancelled);

// Runs jobs in the order of submission on its own threads: on one thread they run one after
// another. Any thread may call anything but the destructor.
class JobQueue {
 public:
  // A job never throws. It runs in any case: one that was cancelled while it waited finds its flag
  // set and fails its request.
  using Job = std::function<void(const CancelFlag&)>;

  explicit JobQueue(int threads);
  // Runs what is queued first.
  ~JobQueue();
  JobQueue(const JobQueue&) = delete;
  JobQueue& operator=(const JobQueue&) = delete;

  void Submit(const RequestPtr& request, Job job);
  // Sets the flag of every job, running or not, whose request is earlier than `sequence`; jobs that
  // open grids go on.
  void CancelBefore(std::uint64_t sequence);
  void WaitUntilIdle();

  std::size_t waiting() const;     // not yet begun
  std::size_t unfinished() const;  // waiting and running
  // Seconds that the waiting jobs are expected to take, from the durations of late jobs of each
  // kind.
  double ExpectedDuration() const;

 private:
  struct Entry {
    RequestPtr request;
    Job job;
    CancelFlag cancelled;
  };
  void Run();

  mutable std::mutex mutex_;  // guards all below but the threads
  std::condition_variable changed_;
  std::deque<std::shared_ptr<Entry>> waiting_;
  std::vector<std::shared_ptr<Entry>> running_;
  std::array<double, kRequestKinds> mean_duration_s_{};  // moving average; 0 until one has ended
  bool stopping_ = false;
  std::vector<std::thread> threads_;  // constant after construction
};

}  // namespace quarro::service
