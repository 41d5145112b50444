#include "gridding/service/grid_state.h"

#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "engine/exceptions.h"
#include "gridding/local/engine_test_support.h"
#include "gridding/service/open_grid.h"

namespace quarro::service {
namespace {

using ::testing::HasSubstr;

std::size_t OpenFiles() {
  return static_cast<std::size_t>(std::distance(
      std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator()));
}

class GridStateTest : public ::testing::Test {
 protected:
  GridStateTest() {
    EngineConfig config;
    std::string set_aside_as;
    auto store = store::GridStore::Create(directory_.path(), "g", {10.0F, 1.0F}, set_aside_as);
    store_ = store.get();
    grid_.Set(std::make_unique<OpenGrid>(std::move(store), config));
  }
  ~GridStateTest() override { grid_.Set(nullptr); }

  std::unique_ptr<CurrentGrid::Lease> TakeLease() {
    return grid_.TakeLease(CurrentGrid::Use::kLater);
  }
  void AddLine() { store_->BeginLine()->Commit({.name = "a.gsf", .account = ""}); }
  static std::uint64_t LinesIn(const GridState::Loan& snapshot) {
    return (*snapshot).GetTotals().lines;
  }

  const testing::FreshDirectory directory_;
  store::GridStore* store_ = nullptr;
  CurrentGrid grid_;
};

TEST_F(GridStateTest, RequestsThatWaitTakeNoFilesEachWhileNothingIsWritten) {
  const std::size_t before = OpenFiles();
  std::vector<std::unique_ptr<CurrentGrid::Lease>> waiting;
  for (int i = 0; i < 500; ++i) waiting.push_back(TakeLease());
  EXPECT_LT(OpenFiles(), before + 10);
}

TEST_F(GridStateTest, EachRequestSeesTheGridAsItWasWhenItWasAccepted) {
  std::vector<std::unique_ptr<CurrentGrid::Lease>> waiting;
  for (std::uint64_t lines = 0; lines < 5; ++lines) {
    waiting.push_back(TakeLease());
    waiting.push_back(TakeLease());
    AddLine();
  }
  for (std::size_t i = 0; i < waiting.size(); ++i) {
    EXPECT_EQ(LinesIn(waiting[i]->state().Borrow()), i / 2);
  }
}

TEST_F(GridStateTest, ThoseThatRunSideBySideGetASnapshotEach) {
  const auto first = TakeLease();
  const auto second = TakeLease();
  const GridState::Loan one = first->state().Borrow();
  const GridState::Loan other = second->state().Borrow();
  EXPECT_NE(&*one, &*other);
  EXPECT_EQ(LinesIn(other), 0U);
}

TEST_F(GridStateTest, AStateThatIsPastIsLentToOneAfterTheOther) {
  const auto first = TakeLease();
  const auto second = TakeLease();
  std::unique_ptr<GridState::Loan> one(new GridState::Loan(first->state().Borrow()));
  AddLine();
  std::uint64_t seen = 99;
  std::thread other([&] { seen = LinesIn(second->state().Borrow()); });
  EXPECT_EQ(LinesIn(*one), 0U);
  one.reset();
  other.join();
  EXPECT_EQ(seen, 0U);
}

TEST_F(GridStateTest, WhatTheFilesOfTheProcessDoNotAllowIsRefusedBeforeTheyRunOut) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit few{.rlim_cur = 200, .rlim_max = before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  std::vector<std::unique_ptr<CurrentGrid::Lease>> waiting;
  std::string reason;
  try {
    while (waiting.size() < 200) {
      waiting.push_back(TakeLease());
      AddLine();
    }
  } catch (const ExSGCServerResources& refusal) {
    reason = refusal.who();
  }
  EXPECT_THAT(reason, HasSubstr("ask again when some are done"));
  EXPECT_LT(OpenFiles(), 190U);
  waiting.pop_back();
  EXPECT_NE(TakeLease(), nullptr) << "there is room again";
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
}

}  // namespace
}  // namespace quarro::service
