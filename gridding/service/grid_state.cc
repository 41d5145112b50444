#include "gridding/service/grid_state.h"

#include <algorithm>
#include <atomic>
#include <string>
#include <utility>

#include "engine/exceptions.h"
#include "support/open_files.h"

namespace quarro::service {

namespace {

// Of the process, whose files they take.
std::atomic<std::size_t> states = 0;

// A snapshot takes the database and its log; two may be taken of a state. Half of the files, or
// 512, are for all the rest.
std::size_t MostStates() {
  constexpr std::size_t kFilesOfAState = 4;
  constexpr std::size_t kFilesForTheRest = 512;
  const std::size_t limit = OpenFileLimit();
  return (limit - std::min(limit / 2, kFilesForTheRest)) / kFilesOfAState;
}

bool IsAtRest(std::uint64_t mark) { return mark % 2 == 0; }

}  // namespace

GridState::GridState(store::GridStore& store) : store_(store), mark_(store.WriteMark()) {
  if (states.load() >= MostStates()) {
    throw ExSGCServerResources(
        "requests that wait keep " + std::to_string(states.load()) +
        " states of grids, as many as the " + std::to_string(OpenFileLimit()) +
        " files that the engine may open allow: ask again when some are done");
  }
  at_hand_.push_back(store_.TakeSnapshot());
  ++states;
}

GridState::~GridState() { --states; }

// What was written while the first snapshot was taken may or may not be in it; the mark has changed
// for good then.
bool GridState::IsCurrent() const { return IsAtRest(mark_) && store_.WriteMark() == mark_; }

GridState::Loan GridState::Borrow() {
  std::unique_lock lock(mutex_);
  if (at_hand_.empty()) {
    lock.unlock();
    if (auto another = AnotherSnapshot()) return {*this, std::move(another)};
    lock.lock();
    returned_.wait(lock, [this] { return !at_hand_.empty(); });
  }
  auto snapshot = std::move(at_hand_.back());
  at_hand_.pop_back();
  return {*this, std::move(snapshot)};
}

// Null when none can be had that shows this state.
std::unique_ptr<store::Snapshot> GridState::AnotherSnapshot() {
  if (!IsCurrent()) return nullptr;
  try {
    auto snapshot = store_.TakeSnapshot();
    return IsCurrent() ? std::move(snapshot) : nullptr;
  } catch (const store::StoreError&) {
    return nullptr;
  }
}

void GridState::TakeBack(std::unique_ptr<store::Snapshot> snapshot) {
  {
    const std::lock_guard lock(mutex_);
    at_hand_.push_back(std::move(snapshot));
  }
  returned_.notify_one();
}

GridState::Loan::Loan(GridState& owner, std::unique_ptr<store::Snapshot> snapshot)
    : owner_(owner), snapshot_(std::move(snapshot)) {}

GridState::Loan::~Loan() { owner_.TakeBack(std::move(snapshot_)); }

}  // namespace quarro::service
