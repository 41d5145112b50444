// Jobs waiting for a thread of the engine.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "gridding/service/delivery.h"
#include "gridding/service/expected_duration.h"
#include "gridding/service/request.h"

namespace quarro::service {

// Tells a job that it is to end early, and why.
class CancelFlag {
 public:
  // `reason` is a literal, or lives as long.
  void Set(const char* reason) { reason_.store(reason, std::memory_order_relaxed); }
  const char* Reason() const { return reason_.load(std::memory_order_relaxed); }
  bool IsSet() const { return Reason() != nullptr; }

 private:
  std::atomic<const char*> reason_ = nullptr;
};

// Throws ExSGClientBase when the flag is set.
void ThrowIfCancelled(const CancelFlag& cancelled);

// Runs jobs in the order of submission on its own threads: on one thread they run one after
// another. Any thread may call anything but the destructor.
//
// A thread begins no other job until the call-back of a request of Order::kFree has begun, so that
// results never pile up faster than call-backs take them.
class JobQueue {
 public:
  // Gives the result of its request, or throws the failure; either is delivered once the job counts
  // as done and what it holds is gone. A job that was cancelled while it waited finds its flag set.
  using Job = std::function<Finished(const CancelFlag&)>;

  // `delivery` must outlive this.
  JobQueue(int threads, Delivery& delivery);
  // Runs what is queued first.
  ~JobQueue();
  JobQueue(const JobQueue&) = delete;
  JobQueue& operator=(const JobQueue&) = delete;

  void Submit(const RequestPtr& request, const RequestSize& size, Job job);
  // Sets the flag of every job, running or not, whose request is earlier than `sequence`; jobs that
  // open grids go on. `reason` is a literal, or lives as long.
  void CancelBefore(std::uint64_t sequence, const char* reason);
  // Until no job is left; the last may still be on their way to their call-backs.
  void WaitUntilIdle();

  std::size_t waiting() const;     // not yet begun
  std::size_t unfinished() const;  // waiting and running
  // Seconds until what waits and what is left of the running jobs is expected to be done, when no
  // call-back holds it up.
  double ExpectedSeconds() const;

 private:
  struct Entry {
    RequestPtr request;
    RequestSize size;
    Job job;
    CancelFlag cancelled;
  };
  void Run();
  void Announce(const RequestPtr& request, Finished finished, const std::exception_ptr& failure);

  Delivery& delivery_;
  mutable std::mutex mutex_;  // guards all below but the threads
  std::condition_variable changed_;
  std::deque<std::shared_ptr<Entry>> waiting_;
  std::vector<std::shared_ptr<Entry>> running_;
  ExpectedDuration expected_;
  bool stopping_ = false;
  std::vector<std::thread> threads_;  // constant after construction
};

}  // namespace quarro::service
