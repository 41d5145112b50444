#include "gridding/remote/outstanding.h"

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include "engine/exceptions.h"
#include "gridding/rpc/message_forms.h"

namespace quarro::remote {

using service::Order;
using service::RequestKind;

Outstanding::Outstanding(service::Delivery& delivery, HeldResult held)
    : delivery_(delivery), held_(std::move(held)) {}

std::uint64_t Outstanding::Begin() {
  const std::lock_guard lock(mutex_);
  being_sent_.insert(++last_id_);
  return last_id_;
}

void Outstanding::Refused(std::uint64_t id) {
  const std::lock_guard lock(mutex_);
  being_sent_.erase(id);
  early_.erase(id);
}

void Outstanding::Accepted(std::uint64_t id, const Asked& asked, const ResultCallback& on_done) {
  const Entry entry{delivery_.Accept(on_done, asked.kind, asked.order, asked.result_number), asked};
  std::optional<v1::Completion> early;
  bool given_up = false;
  {
    const std::lock_guard lock(mutex_);
    being_sent_.erase(id);
    const auto found = early_.find(id);
    if (found != early_.end()) {
      early = std::move(found->second);
      early_.erase(found);
    } else if (given_up_) {
      given_up = true;
    } else {
      accepted_.emplace(id, entry);
    }
  }
  if (early) Deliver(entry, *early);
  if (given_up) DeliverGivenUp(entry);
}

void Outstanding::Complete(const v1::Completion& completion) {
  Entry entry;
  {
    const std::lock_guard lock(mutex_);
    const std::uint64_t id = completion.request_id();
    if (being_sent_.count(id) != 0) {
      early_.emplace(id, completion);
      return;
    }
    const auto found = accepted_.find(id);
    if (found == accepted_.end()) return;
    entry = found->second;
    accepted_.erase(found);
  }
  Deliver(entry, completion);
  changed_.notify_all();
}

void Outstanding::Deliver(const Entry& entry, const v1::Completion& completion) {
  // The times that the token tells are those of the engine.
  const auto now = service::Clock::now();
  entry.request->begun = now - std::chrono::seconds(completion.execution_duration_s());
  entry.request->accepted =
      entry.request->begun - std::chrono::seconds(completion.execution_lag_s());
  std::unique_ptr<SEBaseResult> result;
  try {
    result = completion.outcome_case() == v1::Completion::kHeld ? held_(completion.held().result())
                                                                : rpc::TakeResult(completion);
  } catch (...) {
    delivery_.Fail(entry.request, std::current_exception());
    return;
  }
  delivery_.Deliver(entry.request, std::move(result), completion.object_size());
}

void Outstanding::Lose(const std::string& reason) { GiveUp(reason, false); }

bool Outstanding::LetGo(const std::string& reason) { return GiveUp(reason, true); }

bool Outstanding::GiveUp(const std::string& reason, bool lines_go_on) {
  std::vector<Entry> left;  // in the order of their acceptance
  {
    const std::lock_guard lock(mutex_);
    if (given_up_) return false;
    given_up_ = reason;
    lines_go_on_ = lines_go_on;
    for (const auto& [id, entry] : accepted_) left.push_back(entry);
    accepted_.clear();
  }
  for (const Entry& entry : left) DeliverGivenUp(entry);
  changed_.notify_all();
  return !left.empty();
}

// Once given up.
void Outstanding::DeliverGivenUp(const Entry& entry) {
  entry.request->begun = service::Clock::now();
  if (entry.asked.kind != RequestKind::kLine) {
    delivery_.Fail(entry.request, std::make_exception_ptr(ExSGClientBase(*given_up_)));
    return;
  }
  auto line = std::make_unique<ResultLineAdded>();
  line->line_id = entry.asked.line_id;
  line->failed = lines_go_on_ ? 0 : 1;
  delivery_.Deliver(entry.request, std::move(line), sizeof(ResultLineAdded));
}

void Outstanding::WaitForResults() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] {
    return std::none_of(accepted_.begin(), accepted_.end(),
                        [](const auto& entry) { return entry.second.asked.order == Order::kFree; });
  });
}

void Outstanding::WaitForAll(std::chrono::steady_clock::duration longest) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, longest, [this] { return accepted_.empty(); });
}

}  // namespace quarro::remote
