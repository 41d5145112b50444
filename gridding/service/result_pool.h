// Finished work that waits to be fetched, by token.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engine/result_token.h"
#include "engine/results.h"
#include "gridding/service/failures.h"
#include "gridding/service/request.h"

namespace quarro::service {

// Any thread may call anything. A uid is never given twice by one pool.
class ResultPool {
 public:
  // Puts a result in and gives the token that names it. `bytes` is what the result takes.
  SEResultToken Put(const Request& request, std::unique_ptr<SEBaseResult> result,
                    std::uint64_t bytes);
  // Puts a failure in: Take throws it.
  SEResultToken PutFailure(const Request& request, Failure failure);

  // Hands over what `uid` names, once. Throws the failure, and ExSGClientBase for a uid that names
  // nothing.
  std::unique_ptr<SEBaseResult> Take(std::uint32_t uid);

  // What the resolution, depth or hypotheses result that `uid` names takes, none for any other uid.
  std::optional<std::uint64_t> BytesOf(std::uint32_t uid) const;

  // Makes a waiting entry a failure; an entry that was fetched already stays gone.
  void Replace(std::uint32_t uid, const Failure& failure);

  // Drops waiting resolution, depth and hypotheses results; Take then tells that they were purged.
  void Purge(const std::set<std::uint32_t>& result_numbers);
  void PurgeAll();

  // The call-back that announces `uid` has returned.
  void MarkAnnounced(std::uint32_t uid);

  std::size_t size() const;
  std::uint64_t bytes() const;  // of all that waits
  // One line of text for each entry.
  std::vector<std::string> Describe() const;

 private:
  struct Entry {
    RequestKind kind = RequestKind::kQuery;
    std::uint32_t result_number = 0;
    std::uint64_t bytes = 0;
    bool announced = false;
    std::unique_ptr<SEBaseResult> result;
    std::optional<Failure> failure;
  };
  SEResultToken Insert(const Request& request, Entry entry);
  template <typename Matches>
  void PurgeIf(const Matches& matches);

  mutable std::mutex mutex_;  // guards all below
  std::map<std::uint32_t, Entry> entries_;
  std::uint32_t next_uid_ = 1;
};

}  // namespace quarro::service
