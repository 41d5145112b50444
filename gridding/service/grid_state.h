// The grid as it was at one moment.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "gridding/store/grid_store.h"

namespace quarro::service {

// Snapshots that all show the same grid, lent to one thread each. Every open snapshot takes files
// of the process, so the requests that wait for their turn share a state as long as nothing is
// written between them; a second snapshot is taken only for those that run side by side. Any
// thread.
class GridState {
 public:
  // The state of now. `store` outlives this. Throws StoreError; ExSGCServerResources when states
  // that requests wait with take up the files that the process may open.
  explicit GridState(store::GridStore& store);
  ~GridState();
  GridState(const GridState&) = delete;
  GridState& operator=(const GridState&) = delete;

  // True when nothing was written since.
  bool IsCurrent() const;

  // A snapshot until the end of the loan, which must not outlive the state.
  class Loan {
   public:
    Loan(GridState& owner, std::unique_ptr<store::Snapshot> snapshot);
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;
    ~Loan();
    store::Snapshot& operator*() const { return *snapshot_; }

   private:
    GridState& owner_;
    std::unique_ptr<store::Snapshot> snapshot_;
  };
  // Waits for a loan to end when all are given out and no further snapshot would show this state.
  Loan Borrow();

 private:
  std::unique_ptr<store::Snapshot> AnotherSnapshot();
  void TakeBack(std::unique_ptr<store::Snapshot> snapshot);

  store::GridStore& store_;
  const std::uint64_t mark_;  // of the store, before the first snapshot

  std::mutex mutex_;  // guards all below
  std::condition_variable returned_;
  std::vector<std::unique_ptr<store::Snapshot>> at_hand_;
};

}  // namespace quarro::service
