#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "gridding/store/grid_store.h"
#include "gridding/store/schema.h"
#include "gridding/store/store_test_support.h"

namespace quarro::store {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

constexpr const char* kMoved = "its folder was moved or removed while the grid was open";

class HeldFolderTest : public ::testing::Test {
 protected:
  fs::path Folder(const std::string& name) const { return directory_.Path() / name; }

  void ExpectRefusals(GridStore& store) {
    EXPECT_THAT(ErrorOf([&] { store.TakeSnapshot(); }), HasSubstr(kMoved));
    EXPECT_THAT(ErrorOf([&] { AddLine(store, 2); }), HasSubstr(kMoved));
    EXPECT_THAT(ErrorOf([&] { store.BeginRefinement(); }), HasSubstr(kMoved));
    EXPECT_THAT(ErrorOf([&] { store.Checkpoint(); }), HasSubstr(kMoved));
    EXPECT_THAT(ErrorOf([&] { store.FindLine({}); }), HasSubstr(kMoved));
  }

  const FreshDirectory directory_;
};

TEST_F(HeldFolderTest, AGridWhoseFolderIsRemovedTakesNoLineAnyMore) {
  const auto store = CreateGrid(directory_.Path());
  AddLine(*store, 1);
  fs::remove_all(Folder("g"));
  ExpectRefusals(*store);
}

TEST_F(HeldFolderTest, ALineWhoseGridIsRemovedMeanwhileIsNotToldAsDone) {
  const auto store = CreateGrid(directory_.Path());
  const auto line = store->BeginLine();
  Write(*line, 1);
  fs::remove_all(Folder("g"));
  EXPECT_THAT(ErrorOf([&] { line->Commit(RecordOf(1)); }), HasSubstr(kMoved));
}

TEST_F(HeldFolderTest, AGridThatIsMovedAwayGoesOnOnceItIsPutBack) {
  const auto store = CreateGrid(directory_.Path());
  AddLine(*store, 1);
  fs::rename(Folder("g"), Folder("elsewhere"));
  ExpectRefusals(*store);
  fs::rename(Folder("elsewhere"), Folder("g"));
  AddLine(*store, 2);
  EXPECT_EQ(ReadAll(*store).lines.size(), 2U);
}

TEST_F(HeldFolderTest, AnotherGridAtTheSamePlaceIsNeitherReadNorWrittenNorHurtByTheEnd) {
  auto moved = CreateGrid(directory_.Path());
  AddLine(*moved, 1);
  const Contents before = ReadAll(*moved);
  fs::rename(Folder("g"), Folder("moved"));
  auto other = CreateGrid(directory_.Path());
  AddLine(*other, 7);
  const Contents others = ReadAll(*other);
  ASSERT_TRUE(fs::exists(Folder("g") / (std::string(kDatabaseFile) + "-wal")));
  ExpectRefusals(*moved);
  moved.reset();
  EXPECT_TRUE(fs::exists(Folder("g") / (std::string(kDatabaseFile) + "-wal")));
  EXPECT_EQ(ReadAll(*other), others);
  other.reset();
  EXPECT_EQ(ReadAll(*GridStore::Open(directory_.Path(), "g")), others);
  EXPECT_EQ(ReadAll(*GridStore::Open(directory_.Path(), "moved")), before);
}

TEST_F(HeldFolderTest, TheWriteMarkIsEvenAtRestAndAnotherAfterEachCommit) {
  const auto store = CreateGrid(directory_.Path());
  const std::uint64_t at_first = store->WriteMark();
  EXPECT_EQ(at_first % 2, 0U);
  {
    const auto given_up = store->BeginLine();
    Write(*given_up, 1);
  }
  EXPECT_EQ(store->WriteMark(), at_first);
  AddLine(*store, 1);
  EXPECT_EQ(store->WriteMark() % 2, 0U);
  EXPECT_NE(store->WriteMark(), at_first);
}

TEST_F(HeldFolderTest, APipeInPlaceOfTheDatabaseIsRefusedInsteadOfWaitedFor) {
  fs::create_directory(Folder("g"));
  ASSERT_EQ(::mkfifo((Folder("g") / kDatabaseFile).c_str(), 0600), 0);
  EXPECT_THAT(ErrorOf([&] { GridStore::Open(directory_.Path(), "g"); }), HasSubstr("is no file"));
}

TEST_F(HeldFolderTest, WhatAKilledProgramLeftOfANewGridIsRemovedByTheNextOneOfThatName) {
  const auto leave = [&](const std::string& name, std::chrono::hours age) {
    fs::create_directory(Folder(name));
    std::ofstream(Folder(name) / kDatabaseFile) << "half a database";
    fs::last_write_time(Folder(name), fs::file_time_type::clock::now() - age);
  };
  leave(".g.new-123", std::chrono::hours(2));
  leave(".g.new-124", std::chrono::hours(0));
  leave(".other.new-125", std::chrono::hours(2));
  CreateGrid(directory_.Path());
  EXPECT_FALSE(fs::exists(Folder(".g.new-123")));
  EXPECT_TRUE(fs::exists(Folder(".g.new-124"))) << "it may be in the making";
  EXPECT_TRUE(fs::exists(Folder(".other.new-125")));
}

}  // namespace
}  // namespace quarro::store
