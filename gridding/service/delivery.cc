#include "gridding/service/delivery.h"

#include <algorithm>
#include <utility>

#include "gridding/service/engine_log.h"
#include "gridding/service/failures.h"

namespace quarro::service {

Delivery::Delivery() {
  const auto start = [this](auto run) {
    threads_.emplace_back([run, sink = CurrentEngineLogSink()] {
      const EngineLogScope scope(sink);
      run();
    });
  };
  start([this] { RunInOrder(); });
  start([this] { RunAsTheyCome(replies_); });
  for (int i = 0; i < kFreeThreads; ++i) start([this] { RunAsTheyCome(results_); });
}

Delivery::~Delivery() {
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return outstanding_.empty(); });
    stopping_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

RequestPtr Delivery::Accept(ResultCallback on_done, RequestKind kind, Order order,
                            std::uint32_t result_number) {
  auto request = std::make_shared<Request>();
  request->kind = kind;
  request->order = order;
  request->result_number = result_number;
  request->on_done = std::move(on_done);
  request->accepted = Clock::now();
  request->begun = request->accepted;
  const std::lock_guard lock(mutex_);
  request->sequence = next_sequence_++;
  outstanding_.insert(request->sequence);
  if (order != Order::kFree) outstanding_in_order_.insert(request->sequence);
  return request;
}

void Delivery::Deliver(const RequestPtr& request, std::unique_ptr<SEBaseResult> result,
                       std::uint64_t bytes) {
  const SEResultToken token = pool_.Put(*request, std::move(result), bytes);
  std::unique_lock lock(mutex_);
  // A result that was on its way here while those asked for before a time were failed.
  if (IsGridResult(request->kind) && request->sequence < failed_before_) {
    const Failure failure = *failure_;
    lock.unlock();
    pool_.Replace(token.uid, failure);
    lock.lock();
  }
  Queue({request, token});
  lock.unlock();
  changed_.notify_all();
}

void Delivery::Fail(const RequestPtr& request, const std::exception_ptr& failure) {
  const SEResultToken token = pool_.PutFailure(*request, Failure(failure));
  {
    const std::lock_guard lock(mutex_);
    Queue({request, token});
  }
  changed_.notify_all();
}

void Delivery::Queue(Announcement announcement) {
  const Request& request = *announcement.request;
  if (request.order != Order::kFree) {
    in_order_.emplace(request.sequence, std::move(announcement));
  } else {
    (IsGridResult(request.kind) ? results_ : replies_).push_back(std::move(announcement));
  }
}

void Delivery::FailUnannounced(std::uint64_t sequence, const std::exception_ptr& failure) {
  const Failure reason(failure);
  std::vector<std::uint32_t> uids;
  {
    const std::lock_guard lock(mutex_);
    failed_before_ = std::max(failed_before_, sequence);
    failure_ = reason;
    for (const Announcement& waiting : results_) {
      if (waiting.request->sequence < sequence) uids.push_back(waiting.token.uid);
    }
  }
  for (const std::uint32_t uid : uids) pool_.Replace(uid, reason);
}

void Delivery::WaitForAll() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return outstanding_.empty(); });
}

void Delivery::WaitFor(const RequestPtr& request) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return outstanding_.count(request->sequence) == 0; });
}

void Delivery::WaitUntilBegun(const RequestPtr& request) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] {
    return std::none_of(results_.begin(), results_.end(), [&](const Announcement& announcement) {
      return announcement.request == request;
    });
  });
}

bool Delivery::OnCallbackThread() const {
  return std::any_of(threads_.begin(), threads_.end(), [](const std::thread& thread) {
    return thread.get_id() == std::this_thread::get_id();
  });
}

void Delivery::RunInOrder() {
  std::unique_lock lock(mutex_);
  const auto ready = [this] {
    if (in_order_.empty()) return stopping_;
    const Request& next = *in_order_.begin()->second.request;
    const auto& earlier = next.order == Order::kInOrder ? outstanding_in_order_ : outstanding_;
    return *earlier.begin() == next.sequence;
  };
  for (;;) {
    changed_.wait(lock, ready);
    if (in_order_.empty()) return;
    const Announcement next = std::move(in_order_.extract(in_order_.begin()).mapped());
    lock.unlock();
    Run(next);
    lock.lock();
  }
}

void Delivery::RunAsTheyCome(std::deque<Announcement>& queue) {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [&] { return !queue.empty() || stopping_; });
    if (queue.empty()) return;
    const Announcement next = std::move(queue.front());
    queue.pop_front();
    lock.unlock();
    changed_.notify_all();  // who waits until it has begun
    Run(next);
    lock.lock();
  }
}

void Delivery::Run(const Announcement& announcement) {
  try {
    if (announcement.request->on_done) announcement.request->on_done(announcement.token);
  } catch (...) {
    LogEngine(kLogRefusal, std::string("a call-back for a ") +
                               RequestKindText(announcement.request->kind) +
                               " request threw: " + ReasonOf(std::current_exception()));
  }
  // What the call-back holds on to goes before anyone is told that it has returned.
  announcement.request->on_done.clear();
  pool_.MarkAnnounced(announcement.token.uid);
  {
    const std::lock_guard lock(mutex_);
    outstanding_.erase(announcement.request->sequence);
    outstanding_in_order_.erase(announcement.request->sequence);
  }
  changed_.notify_all();
}

}  // namespace quarro::service
