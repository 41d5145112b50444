#include "gridding/service/result_arena.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "engine/exceptions.h"
#include "gridding/local/engine_test_support.h"

namespace quarro::service {
namespace {

struct Value {
  int number = 7;
};

TEST(ResultArena, SmallArraysStayInMemory) {
  const testing::FreshDirectory directory;
  ResultArena arena(directory.path(), 1U << 20U);
  const Value* values = arena.Array<Value>(1000);
  EXPECT_EQ(values[999].number, 7);
  EXPECT_FALSE(arena.UsesFile());
}

TEST(ResultArena, LargeArraysGoToAFileWithoutANameAndKeepTheirAddresses) {
  const testing::FreshDirectory directory;
  ResultArena arena(directory.path(), 1U << 16U);
  Value* first = arena.Array<Value>(100);
  first[5].number = 1;
  Value* second = arena.Array<Value>(10U << 20U);
  second[(10U << 20U) - 1].number = 2;
  Value* third = arena.Array<Value>(10U << 20U);
  third[0].number = 3;
  EXPECT_TRUE(arena.UsesFile());
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
  EXPECT_EQ(first[5].number, 1);
  EXPECT_EQ(second[0].number, 7);
  EXPECT_EQ(second[(10U << 20U) - 1].number, 2);
  EXPECT_EQ(third[0].number, 3);
  EXPECT_GE(arena.bytes(), (20U << 20U) * sizeof(Value));
}

TEST(ResultArena, WithoutRoomTheEngineIsOutOfResources) {
  ResultArena nowhere("/nonexistent", 0);
  EXPECT_THROW(nowhere.Array<Value>(1), ExSGCServerResources);
  const testing::FreshDirectory directory;
  ResultArena arena(directory.path(), 0);
  EXPECT_THROW(arena.Array<Value>(std::uint64_t{1} << 60U), ExSGCServerResources);
  EXPECT_THROW(arena.Array<Value>(std::uint64_t{1} << 63U), ExSGCServerResources);
}

}  // namespace
}  // namespace quarro::service
