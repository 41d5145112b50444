// The table of work that was asked of the engine and has not come back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace quarro {

// Names by number, ordered. Any thread may call any operation; each is atomic.
class PendingTable {
 public:
  // Stores `name` under `number`, in place of a name that is there.
  void Add(std::uint32_t number, const std::string& name) {
    const std::lock_guard lock(mutex_);
    names_[number] = name;
  }

  // Removes the entry of `number` and copies its name out. False, with `name` unchanged, when there
  // is none.
  bool Take(std::uint32_t number, std::string& name) {
    const std::lock_guard lock(mutex_);
    const auto found = names_.find(number);
    if (found == names_.end()) {
      return false;
    }
    name = found->second;
    names_.erase(found);
    return true;
  }

  std::size_t Count() const {
    const std::lock_guard lock(mutex_);
    return names_.size();
  }

 private:
  mutable std::mutex mutex_;
  std::map<std::uint32_t, std::string> names_;  // guarded by mutex_
};

}  // namespace quarro
