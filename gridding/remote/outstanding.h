// The requests that an engine has accepted and not yet completed.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "gridding/rpc/quarro_v1.pb.h"
#include "gridding/service/delivery.h"

namespace quarro::remote {

// What kind of request it is, and what its completion needs to know.
struct Asked {
  service::RequestKind kind;
  service::Order order;
  std::uint32_t result_number = 0;
  std::uint32_t line_id = 0;
};

// Sees to it that each request accepted gets its call-back once: by the engine's completion, or by
// a failure when the engine is lost or let go. Thread-safe; requests begin on one thread at a time,
// completions come on one thread.
class Outstanding {
 public:
  // Makes the result that stands for one to be fetched.
  using HeldResult = std::function<std::unique_ptr<SEBaseResult>(std::uint32_t result)>;

  // `delivery` must outlive this.
  Outstanding(service::Delivery& delivery, HeldResult held);

  // The id of a new request, which is about to be sent. Accepted or Refused must follow.
  std::uint64_t Begin();
  void Accepted(std::uint64_t id, const Asked& asked, const ResultCallback& on_done);
  void Refused(std::uint64_t id);

  // Delivers what the engine completed. A request that is not known was given up before.
  void Complete(const v1::Completion& completion);

  // Each gives up all requests, those to come included. Lost: they fail, lines by their flag.
  void Lose(const std::string& reason);
  // Lines go on at the engine, of which their results tell nothing; all else fails. True when
  // there was anything.
  bool LetGo(const std::string& reason);

  // Until nothing is outstanding but lines and barriers, or nothing at all, or the time is over.
  void WaitForResults();
  void WaitForAll(std::chrono::steady_clock::duration longest);

 private:
  struct Entry {
    service::RequestPtr request;
    Asked asked;
  };
  void Deliver(const Entry& entry, const v1::Completion& completion);
  bool GiveUp(const std::string& reason, bool lines_go_on);
  void DeliverGivenUp(const Entry& entry);

  service::Delivery& delivery_;
  const HeldResult held_;
  std::mutex mutex_;  // guards all below
  std::condition_variable changed_;
  std::uint64_t last_id_ = 0;
  std::set<std::uint64_t> being_sent_;
  std::map<std::uint64_t, v1::Completion> early_;  // completions of those
  std::map<std::uint64_t, Entry> accepted_;
  std::optional<std::string> given_up_;  // the reason
  bool lines_go_on_ = false;             // once given up
};

}  // namespace quarro::remote
