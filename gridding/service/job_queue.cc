#include "gridding/service/job_queue.h"

#include <algorithm>
#include <utility>

#include "gridding/service/engine_log.h"
#include "support/exceptions.h"

namespace quarro::service {

namespace {

double SecondsSince(Clock::time_point begun) {
  return std::chrono::duration<double>(Clock::now() - begun).count();
}

}  // namespace

void ThrowIfCancelled(const CancelFlag& cancelled) {
  const char* reason = cancelled.Reason();
  if (reason != nullptr) throw ExSGClientBase(std::string("cancelled, since ") + reason);
}

JobQueue::JobQueue(int threads, Delivery& delivery) : delivery_(delivery) {
  for (int i = 0; i < threads; ++i) {
    threads_.emplace_back([this, sink = CurrentEngineLogSink()] {
      const EngineLogScope scope(sink);
      Run();
    });
  }
}

JobQueue::~JobQueue() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

void JobQueue::Submit(const RequestPtr& request, const RequestSize& size, Job job) {
  auto entry = std::make_shared<Entry>();
  entry->request = request;
  entry->size = size;
  entry->job = std::move(job);
  {
    const std::lock_guard lock(mutex_);
    waiting_.push_back(std::move(entry));
  }
  changed_.notify_all();
}

void JobQueue::CancelBefore(std::uint64_t sequence, const char* reason) {
  const auto cancel = [&](Entry& entry) {
    if (entry.request->sequence < sequence && entry.request->kind != RequestKind::kOpenGrid) {
      entry.cancelled.Set(reason);
    }
  };
  const std::lock_guard lock(mutex_);
  for (const auto& entry : running_) cancel(*entry);
  for (const auto& entry : waiting_) cancel(*entry);
}

void JobQueue::WaitUntilIdle() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return waiting_.empty() && running_.empty(); });
}

std::size_t JobQueue::waiting() const {
  const std::lock_guard lock(mutex_);
  return waiting_.size();
}

std::size_t JobQueue::unfinished() const {
  const std::lock_guard lock(mutex_);
  return waiting_.size() + running_.size();
}

double JobQueue::ExpectedSeconds() const {
  const std::lock_guard lock(mutex_);
  const auto expected_s = [this](const Entry& entry) {
    return expected_.Of(entry.request->kind, entry.size);
  };
  double sum_s = 0.0;
  for (const auto& entry : waiting_) sum_s += expected_s(*entry);
  for (const auto& entry : running_) {
    sum_s += std::max(0.0, expected_s(*entry) - SecondsSince(entry->request->begun));
  }
  return sum_s / static_cast<double>(threads_.size());
}

void JobQueue::Run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return !waiting_.empty() || stopping_; });
    if (waiting_.empty()) return;
    const std::shared_ptr<Entry> entry = std::move(waiting_.front());
    waiting_.pop_front();
    running_.push_back(entry);
    entry->request->begun = Clock::now();
    lock.unlock();
    Finished finished;
    std::exception_ptr failure;
    try {
      finished = entry->job(entry->cancelled);
    } catch (...) {
      failure = std::current_exception();
    }
    entry->job = nullptr;
    const double duration_s = SecondsSince(entry->request->begun);
    lock.lock();
    if (!failure) expected_.Learn(entry->request->kind, entry->size, duration_s);
    running_.erase(std::find(running_.begin(), running_.end(), entry));
    changed_.notify_all();
    lock.unlock();
    Announce(entry->request, std::move(finished), failure);
    if (entry->request->order == Order::kFree) delivery_.WaitUntilBegun(entry->request);
    lock.lock();
  }
}

void JobQueue::Announce(const RequestPtr& request, Finished finished,
                        const std::exception_ptr& failure) {
  if (failure) {
    delivery_.Fail(request, failure);
  } else {
    delivery_.Deliver(request, std::move(finished.result), finished.bytes);
  }
}

}  // namespace quarro::service
