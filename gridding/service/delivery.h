// From finished work to call-backs, each once and in its order.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include "gridding/service/failures.h"
#include "gridding/service/request.h"
#include "gridding/service/result_pool.h"

namespace quarro::service {

// Owns the result pool of one client and the threads on which its call-backs run: one for lines and
// acknowledgements, one at a time and in the order in which they are delivered; kFreeThreads for
// resolutions, depths and hypotheses, whose call-backs may take long over a file; and one for all
// other replies, which a waiting console is not to be kept from. What escapes a call-back is
// logged, and the thread lives on.
//
// Any thread may call anything but the destructor. The owner makes sure that every request that was
// accepted is delivered or failed before it destroys this.
class Delivery {
 public:
  Delivery();
  // Waits until every call-back has returned.
  ~Delivery();
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  // Numbers a request. Deliver or Fail must follow, once.
  RequestPtr Accept(ResultCallback on_done, RequestKind kind, Order order,
                    std::uint32_t result_number = 0);
  // Puts the result in the pool and has its call-back run, for requests of kInOrder and
  // kAfterAllEarlier in the order of their acceptance, whatever the order of these calls.
  void Deliver(const RequestPtr& request, std::unique_ptr<SEBaseResult> result,
               std::uint64_t bytes);
  // The same with a failure, of whatever class.
  void Fail(const RequestPtr& request, const std::exception_ptr& failure);

  // Fails resolution, depth and hypotheses results accepted before `sequence` whose call-back has
  // not begun, those included that are delivered later.
  void FailUnannounced(std::uint64_t sequence, const std::exception_ptr& failure);

  ResultPool& pool() { return pool_; }

  // Wait until the call-backs of all requests, those included that call-backs make meanwhile, or of
  // this one have returned. Not on a thread of call-backs.
  void WaitForAll();
  void WaitFor(const RequestPtr& request);
  // Waits until the call-back of a delivered resolution, depth or hypotheses request has begun.
  void WaitUntilBegun(const RequestPtr& request);
  // True on a thread that runs call-backs of this object.
  bool OnCallbackThread() const;

  static constexpr int kFreeThreads = 2;

 private:
  struct Announcement {
    RequestPtr request;
    SEResultToken token;
  };
  void Queue(Announcement announcement);  // under the lock
  void RunInOrder();
  void RunAsTheyCome(std::deque<Announcement>& queue);
  void Run(const Announcement& announcement);

  ResultPool pool_;
  std::mutex mutex_;  // guards all below but the threads
  std::condition_variable changed_;
  std::set<std::uint64_t> outstanding_;           // accepted, their call-backs not yet returned
  std::set<std::uint64_t> outstanding_in_order_;  // those of them whose order is not free
  // By sequence: a barrier may fail while lines accepted before it are in work.
  std::map<std::uint64_t, Announcement> in_order_;
  std::deque<Announcement> results_;
  std::deque<Announcement> replies_;
  std::uint64_t next_sequence_ = 1;
  std::uint64_t failed_before_ = 0;  // results of earlier requests fail with the next
  std::optional<Failure> failure_;
  bool stopping_ = false;
  std::vector<std::thread> threads_;  // constant after construction
};

}  // namespace quarro::service
