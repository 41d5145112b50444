#include "gridding/service/result_pool.h"

#include <algorithm>
#include <limits>
#include <locale>
#include <sstream>
#include <utility>

#include "engine/exceptions.h"
#include "gridding/service/failures.h"

namespace quarro::service {

namespace {

std::uint32_t WholeSeconds(Clock::duration duration) {
  return static_cast<std::uint32_t>(
      std::chrono::duration_cast<std::chrono::seconds>(duration).count());
}

}  // namespace

const char* RequestKindText(RequestKind kind) {
  static constexpr const char* kTexts[kRequestKinds] = {
      "resolution", "depth", "hypotheses", "query", "trace", "statistics",
      "purge",      "line",  "open grid",  "drop",  "synch", "refine"};
  return kTexts[static_cast<std::size_t>(kind)];
}

SEResultToken ResultPool::Put(const Request& request, std::unique_ptr<SEBaseResult> result,
                              std::uint64_t bytes) {
  Entry entry;
  entry.bytes = bytes;
  entry.result = std::move(result);
  return Insert(request, std::move(entry));
}

SEResultToken ResultPool::PutFailure(const Request& request, Failure failure) {
  Entry entry;
  entry.failure = std::move(failure);
  return Insert(request, std::move(entry));
}

SEResultToken ResultPool::Insert(const Request& request, Entry entry) {
  SEResultToken token;
  token.object_size = static_cast<std::uint32_t>(
      std::min<std::uint64_t>(entry.bytes, std::numeric_limits<std::uint32_t>::max()));
  token.execution_lag_s = WholeSeconds(request.begun - request.accepted);
  token.execution_duration_s = WholeSeconds(Clock::now() - request.begun);
  entry.kind = request.kind;
  entry.result_number = request.result_number;
  const std::lock_guard lock(mutex_);
  token.uid = next_uid_++;
  entries_.emplace(token.uid, std::move(entry));
  return token;
}

std::unique_ptr<SEBaseResult> ResultPool::Take(std::uint32_t uid) {
  Entry entry;
  {
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(uid);
    if (found == entries_.end()) {
      throw ExSGClientBase("no result waits under the token " + std::to_string(uid));
    }
    entry = std::move(found->second);
    entries_.erase(found);
  }
  if (entry.failure) entry.failure->Throw();
  return std::move(entry.result);
}

std::optional<std::uint64_t> ResultPool::BytesOf(std::uint32_t uid) const {
  const std::lock_guard lock(mutex_);
  const auto found = entries_.find(uid);
  if (found == entries_.end() || !IsGridResult(found->second.kind)) return std::nullopt;
  return found->second.bytes;
}

void ResultPool::Replace(std::uint32_t uid, const Failure& failure) {
  std::unique_ptr<SEBaseResult> dropped;  // destroyed without the lock
  const std::lock_guard lock(mutex_);
  const auto found = entries_.find(uid);
  if (found == entries_.end()) return;
  dropped = std::move(found->second.result);
  found->second.failure = failure;
  found->second.bytes = 0;
}

template <typename Matches>
void ResultPool::PurgeIf(const Matches& matches) {
  std::vector<std::unique_ptr<SEBaseResult>> dropped;  // destroyed without the lock
  const std::lock_guard lock(mutex_);
  for (auto next = entries_.begin(); next != entries_.end();) {
    const auto here = next++;
    Entry& entry = here->second;
    if (!IsGridResult(entry.kind) || !matches(entry)) continue;
    dropped.push_back(std::move(entry.result));
    if (entry.announced) {
      entries_.erase(here);
      continue;
    }
    entry.bytes = 0;
    entry.failure = Failure("result " + std::to_string(entry.result_number) +
                            " was purged before it was fetched");
  }
}

void ResultPool::Purge(const std::set<std::uint32_t>& result_numbers) {
  PurgeIf([&](const Entry& entry) { return result_numbers.count(entry.result_number) != 0; });
}

void ResultPool::PurgeAll() {
  PurgeIf([](const Entry&) { return true; });
}

void ResultPool::MarkAnnounced(std::uint32_t uid) {
  const std::lock_guard lock(mutex_);
  const auto found = entries_.find(uid);
  if (found != entries_.end()) found->second.announced = true;
}

std::size_t ResultPool::size() const {
  const std::lock_guard lock(mutex_);
  return entries_.size();
}

std::uint64_t ResultPool::bytes() const {
  const std::lock_guard lock(mutex_);
  std::uint64_t sum = 0;
  for (const auto& [uid, entry] : entries_) sum += entry.bytes;
  return sum;
}

std::vector<std::string> ResultPool::Describe() const {
  std::vector<std::string> lines;
  const std::lock_guard lock(mutex_);
  for (const auto& [uid, entry] : entries_) {
    std::ostringstream line;
    line.imbue(std::locale::classic());
    line << "token " << uid << ": " << RequestKindText(entry.kind);
    if (IsGridResult(entry.kind)) line << " result " << entry.result_number;
    if (entry.failure) {
      line << ", failed (" << entry.failure->reason() << ")";
    } else {
      line << ", " << entry.bytes << " bytes";
    }
    line << (entry.announced ? ", announced" : ", call-back to come");
    lines.push_back(line.str());
  }
  return lines;
}

}  // namespace quarro::service
