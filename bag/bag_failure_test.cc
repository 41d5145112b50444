// How failures of BAG files are told: each status with its text, and a full disc.

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <hdf5.h>
#include <sys/resource.h>

#include "bag/bag.h"
#include "bag/bag_fixture.h"
#include "bag/test_grid.h"

namespace quarro::bag {
namespace {

TEST_F(BagFile, OverwritesAFileThatExists) {
  writeText(path_, "something else");
  ASSERT_EQ(create({.name = "grid", .rows = 1, .columns = 1}), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  EXPECT_TRUE(Reader(path_).valid());
}

TEST_F(BagFile, PathInAFolderThatDoesNotExistIsRefused) {
  path_ = folder_ / "none/test.bag";
  EXPECT_EQ(create({.name = "grid"}), kBagNoSuchFolder);
  EXPECT_EQ(file_, nullptr);
  EXPECT_EQ(textOf(kBagNoSuchFolder), "the folder of the BAG file does not exist");
}

TEST_F(BagFile, PathOfAFolderIsRefused) {
  path_ = folder_ / "taken.bag";
  std::filesystem::create_directory(path_);
  EXPECT_EQ(create({.name = "grid"}), kBagNotRegularFile);
  EXPECT_EQ(textOf(kBagNotRegularFile),
            "the path of the BAG file is taken by something that is not a regular file");
  EXPECT_TRUE(std::filesystem::is_directory(path_));
}

TEST_F(BagFile, FolderThatTakesNoFilesIsRefused) {
  path_ = "/proc/test.bag";
  EXPECT_EQ(create({.name = "grid"}), kBagCreateFailed);
  EXPECT_EQ(textOf(kBagCreateFailed).rfind("the BAG file cannot be created", 0), 0U);
}

TEST_F(BagFile, FileThatIsBeingWrittenIsRefused) {
  ASSERT_EQ(create({.name = "grid"}), kBagSuccess);
  bagHandle* second = nullptr;
  EXPECT_EQ(bagFileCreate(path_.c_str(), &definition_, &second), kBagCreateFailed);
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(close(), kBagSuccess);
}

TEST_F(BagFile, NullPointersAreRefused) {
  EXPECT_EQ(bagFileCreate(path_.c_str(), &definition_, nullptr), kBagBadArgument);
  EXPECT_EQ(bagFileCreate(nullptr, &definition_, &file_), kBagBadArgument);
  EXPECT_EQ(bagFileCreate(path_.c_str(), nullptr, &file_), kBagBadArgument);
  EXPECT_EQ(bagFileCreate(path_.c_str(), &definition_, &file_), kBagBadArgument)
      << "a definition that was never filled";
  EXPECT_EQ(bagCreateVariableResolutionLayers(nullptr, 0, 1), kBagBadArgument);
  EXPECT_EQ(bagWriteRow(nullptr, 0, 0, 0, kSurfaceElevation, this), kBagBadArgument);
  EXPECT_EQ(bagUpdateSurface(nullptr, kSurfaceElevation), kBagBadArgument);
  EXPECT_EQ(bagUpdateOptSurface(nullptr, kSurfaceNodeGroup), kBagBadArgument);
  EXPECT_EQ(bagFileClose(nullptr), kBagBadArgument);
  ASSERT_EQ(create({.name = "grid"}), kBagSuccess);
  EXPECT_EQ(bagWriteRow(file_, 0, 0, 0, kSurfaceElevation, nullptr), kBagBadArgument);
}

TEST_F(BagFile, DefinitionThatDoesNotAskForVariableResolutionGetsNone) {
  ASSERT_EQ(define(folder_, {.name = "grid"}, &definition_), kBagSuccess);
  definition_.has_variable_resolution = 0;
  ASSERT_EQ(bagFileCreate(path_.c_str(), &definition_, &file_), kBagSuccess);
  EXPECT_EQ(bagCreateVariableResolutionLayers(file_, 0, 1), kBagNotVariableResolution);
  EXPECT_EQ(textOf(kBagNotVariableResolution),
            "the definition of the BAG file does not ask for variable resolution");
}

TEST_F(BagFile, LayersAreCreatedOnce) {
  ASSERT_EQ(create({.name = "grid"}), kBagSuccess);
  EXPECT_EQ(bagCreateVariableResolutionLayers(file_, 4, 1), kBagSuccess);
  EXPECT_EQ(bagCreateVariableResolutionLayers(file_, 4, 1), kBagLayersExist);
  EXPECT_EQ(textOf(kBagLayersExist), "the BAG file has its variable-resolution layers already");
}

TEST_F(BagFile, MoreNodesThanAnIndexReachesAreRefused) {
  ASSERT_EQ(create({.name = "grid"}), kBagSuccess);
  EXPECT_EQ(bagCreateVariableResolutionLayers(file_, 4294967296U, 1), kBagTooManyRefinedNodes);
  EXPECT_EQ(textOf(kBagTooManyRefinedNodes), "a BAG file holds at most 4294967295 refined nodes");
  EXPECT_EQ(bagCreateVariableResolutionLayers(file_, 4294967295U, 1), kBagSuccess);
  EXPECT_EQ(close(), kBagTooManyRefinedNodes);
  EXPECT_FALSE(std::filesystem::exists(path_));
}

// A write that is refused, the status, and its text.
struct BadWrite {
  std::string name;
  std::uint32_t row;
  std::uint32_t first;
  std::uint32_t last;
  int surface;
  bagStatus status;
  std::string text;
};

class RefusedWrite : public BagFile, public testing::WithParamInterface<BadWrite> {};

TEST_P(RefusedWrite, IsToldAtOnceAndOnClosingAndSetsTheFileAside) {
  const auto& [name, row, first, last, surface, status, text] = GetParam();
  ASSERT_EQ(create({.name = "grid", .rows = 3, .columns = 4}), kBagSuccess);
  ASSERT_EQ(bagCreateVariableResolutionLayers(file_, 6, 0), kBagSuccess);
  const std::vector<float> records(100);
  EXPECT_EQ(bagWriteRow(file_, row, first, last, surface, records.data()), status);
  EXPECT_EQ(textOf(status), text);
  EXPECT_EQ(writeElevations(0, 0, {-1}), kBagSuccess);
  EXPECT_EQ(close(), status);
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_TRUE(std::filesystem::exists(path_.string() + ".incomplete"));
}

const std::string kColumnsText =
    "the columns lie outside the layer, or the first one lies after the last one";
INSTANTIATE_TEST_SUITE_P(
    Bag, RefusedWrite,
    testing::Values(
        BadWrite{"Row", 3, 0, 3, kSurfaceElevation, kBagRowOutOfRange,
                 "the row lies outside the layer"},
        BadWrite{"RowOfRefinements", 1, 0, 3, kSurfaceRefinement, kBagRowOutOfRange,
                 "the row lies outside the layer"},
        BadWrite{"Columns", 0, 0, 4, kSurfaceElevation, kBagColumnsOutOfRange, kColumnsText},
        BadWrite{"ColumnsBackwards", 0, 2, 1, kSurfaceElevation, kBagColumnsOutOfRange,
                 kColumnsText},
        BadWrite{"Nodes", 0, 5, 6, kSurfaceRefinement, kBagColumnsOutOfRange, kColumnsText},
        BadWrite{"Code", 0, 0, 0, 3, kBagUnknownSurface, "no layer has this surface code"},
        BadWrite{"LayerNotMade", 0, 0, 0, kSurfaceNodeGroup, kBagLayerMissing,
                 "the BAG file was made without this layer"}),
    [](const testing::TestParamInfo<BadWrite>& tested) { return tested.param.name; });

TEST_F(BagFile, EachUpdateFunctionTakesItsOwnLayersOnly) {
  ASSERT_EQ(create({.name = "grid"}), kBagSuccess);
  EXPECT_EQ(bagUpdateSurface(file_, kSurfaceNodeGroup), kBagUnknownSurface);
  EXPECT_EQ(bagUpdateOptSurface(file_, kSurfaceElevation), kBagUnknownSurface);
  EXPECT_EQ(bagUpdateOptSurface(file_, kSurfaceNodeGroup), kBagLayerMissing);
}

TEST(BagErrorString, IsUnknownForOtherNumbers) {
  const char* text = "unchanged";
  EXPECT_NE(bagGetErrorString(9999, &text), 0);
  EXPECT_NE(bagGetErrorString(-1, &text), 0);
  EXPECT_STREQ(text, "unchanged");
  EXPECT_NE(bagGetErrorString(kBagSuccess, nullptr), 0);
}

TEST(BagErrorString, EachStatusHasATextOfItsOwn) {
  std::vector<std::string> texts;
  for (bagError status = 0; status < 100; ++status) {
    const char* text = nullptr;
    if (bagGetErrorString(status, &text) == 0) texts.emplace_back(text);
  }
  EXPECT_EQ(texts.size(), 32U);
  std::sort(texts.begin(), texts.end());
  EXPECT_EQ(std::adjacent_find(texts.begin(), texts.end()), texts.end());
}

// The children of these tests end by exit, since it is then that HDF5 would crash or print.
// NOLINTBEGIN(concurrency-mt-unsafe): each has one thread.

// From now on a file of this process grows no larger; what a full disc does.
void limitFileSize(rlim_t bytes) {
  (void)std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit = {bytes, RLIM_INFINITY};
  (void)setrlimit(RLIMIT_FSIZE, &limit);
}

[[noreturn]] void writeWithoutSpace(const std::filesystem::path& path, const bagData& definition) {
  limitFileSize(100000);
  bagHandle* file = nullptr;
  if (bagFileCreate(path.c_str(), &definition, &file) != kBagSuccess) std::exit(10);
  std::mt19937 random(1);
  std::vector<float> elevations(1000);
  bagError written = kBagSuccess;
  for (std::uint32_t row = 0; row < 1000; ++row) {
    for (float& elevation : elevations) elevation = static_cast<float>(random());
    const bagError status = bagWriteRow(file, row, 0, 999, kSurfaceElevation, elevations.data());
    if (written == kBagSuccess) written = status;
  }
  if (written != kBagWriteFailed) std::exit(11);
  std::exit(bagFileClose(file) == kBagWriteFailed ? 0 : 12);
}

TEST_F(BagFile, FullDiscIsToldWithoutAWordOfHdf5) {
  ASSERT_EQ(define(folder_, {.name = "grid", .rows = 1000, .columns = 1000}, &definition_),
            kBagSuccess);
  EXPECT_EXIT(writeWithoutSpace(path_, definition_), testing::ExitedWithCode(0), "^$");
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_TRUE(std::filesystem::exists(path_.string() + ".incomplete"));
  EXPECT_EQ(textOf(kBagWriteFailed), "the BAG file cannot be written (check the free space)");
}

// Only what HDF5 keeps to the last does not fit.
[[noreturn]] void closeWithoutSpace(const std::filesystem::path& path, const bagData& definition) {
  bagHandle* file = nullptr;
  if (bagFileCreate(path.c_str(), &definition, &file) != kBagSuccess) std::exit(10);
  const std::vector<float> elevations(11, -5.0F);
  if (bagWriteRow(file, 0, 0, 10, kSurfaceElevation, elevations.data()) != 0) std::exit(11);
  if (bagUpdateSurface(file, kSurfaceElevation) != kBagSuccess) std::exit(12);
  limitFileSize(100);
  std::exit(bagFileClose(file) == kBagCloseFailed ? 0 : 13);
}

TEST_F(BagFile, FullDiscOnClosingIsToldWithoutAWordOfHdf5) {
  ASSERT_EQ(define(folder_, {.name = "grid"}, &definition_), kBagSuccess);
  EXPECT_EXIT(closeWithoutSpace(path_, definition_), testing::ExitedWithCode(0), "^$");
  EXPECT_TRUE(std::filesystem::exists(path_.string() + ".incomplete"));
  EXPECT_EQ(textOf(kBagCloseFailed),
            "the BAG file cannot be completed on closing (check the free space)");
}

TEST_F(BagFile, FullDiscOnCreationIsToldWithoutAWordOfHdf5) {
  ASSERT_EQ(define(folder_, {.name = "grid"}, &definition_), kBagSuccess);
  const auto create_without_space = [&](rlim_t bytes) {
    limitFileSize(bytes);
    const bagError status = bagFileCreate(path_.c_str(), &definition_, &file_);
    std::exit(status == kBagCreateFailed && file_ == nullptr ? 0 : 10);
  };
  for (const rlim_t bytes : {0, 90, 3000, 9000}) {
    EXPECT_EXIT(create_without_space(bytes), testing::ExitedWithCode(0), "^$") << bytes;
    EXPECT_FALSE(std::filesystem::exists(path_)) << bytes;
    EXPECT_TRUE(std::filesystem::remove(path_.string() + ".incomplete")) << bytes;
  }
}

// The file as far as it was created fits, the layers of variable resolution do not.
[[noreturn]] void createLayersWithoutSpace(const std::filesystem::path& path,
                                           const bagData& definition) {
  bagHandle* file = nullptr;
  if (bagFileCreate(path.c_str(), &definition, &file) != kBagSuccess) std::exit(10);
  limitFileSize(std::filesystem::file_size(path));
  if (bagCreateVariableResolutionLayers(file, 6, 1) != kBagWriteFailed) std::exit(11);
  std::exit(bagFileClose(file) == kBagWriteFailed ? 0 : 12);
}

TEST_F(BagFile, FullDiscOnCreationOfLayersIsToldAtOnceAndSetsTheFileAside) {
  ASSERT_EQ(define(folder_, {.name = "grid"}, &definition_), kBagSuccess);
  EXPECT_EXIT(createLayersWithoutSpace(path_, definition_), testing::ExitedWithCode(0), "^$");
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_TRUE(std::filesystem::exists(path_.string() + ".incomplete"));
}

// NOLINTEND(concurrency-mt-unsafe)

TEST_F(BagFile, FailuresPrintNothingAndLeaveTheCallersHdf5SettingsAlone) {
  H5E_auto2_t before = nullptr;
  void* data = nullptr;
  H5Eget_auto2(H5E_DEFAULT, &before, &data);
  ASSERT_NE(before, nullptr);
  testing::internal::CaptureStderr();
  path_ = "/proc/test.bag";
  EXPECT_EQ(create({.name = "grid"}), kBagCreateFailed);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  H5E_auto2_t after = nullptr;
  H5Eget_auto2(H5E_DEFAULT, &after, &data);
  EXPECT_EQ(after, before);
}

}  // namespace
}  // namespace quarro::bag
