// What bagWriteRow and the update functions leave in the file, in whatever order rows come, and
// how failures are told.

#include "bag/bag.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <hdf5.h>
#include <sys/resource.h>

#include "bag/test_grid.h"

namespace quarro::bag {
namespace {

std::string textOf(bagError status) {
  const char* text = "no text";
  EXPECT_EQ(bagGetErrorString(status, &text), 0);
  return text;
}

bagError define(const TestFolder& folder, const TestGrid& grid, bagData* definition) {
  const auto path = folder / (grid.name + ".xml");
  writeText(path, filledTemplate(templateOf(grid), grid));
  const bagError status = bagInitDefinitionFromFile(definition, path.c_str());
  definition->has_variable_resolution = 1;
  return status;
}

// What a file that was closed holds.
class Reader {
 public:
  explicit Reader(const std::filesystem::path& path)
      : file_(H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT)) {}
  ~Reader() { H5Fclose(file_); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  bool valid() const { return file_ >= 0; }

  template <typename Record>
  std::vector<Record> records(const std::string& layer) const {
    const hid_t dataset = open(layer);
    const hid_t space = H5Dget_space(dataset);
    const hid_t type = H5Dget_type(dataset);
    EXPECT_EQ(H5Tget_size(type), sizeof(Record));
    std::vector<Record> all(static_cast<std::size_t>(H5Sget_simple_extent_npoints(space)));
    EXPECT_GE(H5Dread(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, all.data()), 0);
    H5Tclose(type);
    H5Sclose(space);
    H5Dclose(dataset);
    return all;
  }

  double attribute(const std::string& layer, const char* name) const {
    const hid_t dataset = open(layer);
    const hid_t attribute = H5Aopen(dataset, name, H5P_DEFAULT);
    double value = -12345.0;
    EXPECT_GE(H5Aread(attribute, H5T_NATIVE_DOUBLE, &value), 0) << layer << " " << name;
    H5Aclose(attribute);
    H5Dclose(dataset);
    return value;
  }

 private:
  hid_t open(const std::string& layer) const {
    return H5Dopen2(file_, ("/BAG_root/" + layer).c_str(), H5P_DEFAULT);
  }

  hid_t file_;
};

class BagFile : public testing::Test {
 protected:
  ~BagFile() override {
    if (file_ != nullptr) bagFileClose(file_);
    bagFreeDefinition(&definition_);
  }

  bagError create(const TestGrid& grid) {
    EXPECT_EQ(define(folder_, grid, &definition_), kBagSuccess);
    return bagFileCreate(path_.c_str(), &definition_, &file_);
  }

  bagError close() { return bagFileClose(std::exchange(file_, nullptr)); }

  bagError writeElevations(std::uint32_t row, std::uint32_t first,
                           const std::vector<float>& elevations) {
    return bagWriteRow(file_, row, first, first + static_cast<std::uint32_t>(elevations.size()) - 1,
                       kSurfaceElevation, elevations.data());
  }

  TestFolder folder_;
  std::filesystem::path path_ = folder_ / "test.bag";
  bagData definition_ = {};
  bagHandle* file_ = nullptr;
};

TEST_F(BagFile, DoesNotNeedItsDefinitionAfterCreation) {
  ASSERT_EQ(create({.name = "grid", .rows = 1, .columns = 3}), kBagSuccess);
  bagFreeDefinition(&definition_);
  EXPECT_EQ(writeElevations(0, 0, {-1, -2, -3}), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  EXPECT_EQ(Reader(path_).records<float>("elevation"), std::vector<float>({-1, -2, -3}));
}

TEST_F(BagFile, StatesTheDefinitionsExtremesUntilTheyAreUpdated) {
  ASSERT_EQ(define(folder_, {.name = "grid", .rows = 2, .columns = 2}, &definition_), kBagSuccess);
  definition_.min_elevation_m = -30.5F;
  definition_.max_elevation_m = -10.25F;
  definition_.min_uncertainty_m = 0.5F;
  definition_.max_uncertainty_m = 1.5F;
  ASSERT_EQ(bagFileCreate(path_.c_str(), &definition_, &file_), kBagSuccess);
  const std::vector<float> uncertainties = {7, 9};
  EXPECT_EQ(bagWriteRow(file_, 0, 0, 1, kSurfaceUncertainty, uncertainties.data()), kBagSuccess);
  EXPECT_EQ(bagUpdateSurface(file_, kSurfaceUncertainty), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  const Reader reader(path_);
  EXPECT_EQ(reader.attribute("elevation", "Minimum Elevation Value"), -30.5);
  EXPECT_EQ(reader.attribute("elevation", "Maximum Elevation Value"), -10.25);
  EXPECT_EQ(reader.attribute("uncertainty", "Minimum Uncertainty Value"), 7);
  EXPECT_EQ(reader.attribute("uncertainty", "Maximum Uncertainty Value"), 9);
}

TEST_F(BagFile, ExtremesLeaveOutNullsAndNumbersThatAreNone) {
  ASSERT_EQ(create({.name = "grid", .rows = 2, .columns = 3}), kBagSuccess);
  EXPECT_EQ(writeElevations(0, 0, {-3, kBagNullValue, -8}), kBagSuccess);
  EXPECT_EQ(writeElevations(1, 0, {std::nanf(""), 2, kBagNullValue}), kBagSuccess);
  EXPECT_EQ(bagUpdateSurface(file_, kSurfaceElevation), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  EXPECT_EQ(Reader(path_).attribute("elevation", "Minimum Elevation Value"), -8);
  EXPECT_EQ(Reader(path_).attribute("elevation", "Maximum Elevation Value"), 2);
}

TEST_F(BagFile, LayersOfNullsAloneStateTheirNull) {
  ASSERT_EQ(create({.name = "grid", .rows = 2, .columns = 2}), kBagSuccess);
  ASSERT_EQ(bagCreateVariableResolutionLayers(file_, 0, 1), kBagSuccess);
  const std::vector<bagRefinementMetadataRecord> none(2, {kBagNullIndex, 0, 0, -1, -1, -1, -1});
  for (const std::uint32_t row : {0U, 1U}) {
    EXPECT_EQ(writeElevations(row, 0, {kBagNullValue, kBagNullValue}), kBagSuccess);
    EXPECT_EQ(bagWriteRow(file_, row, 0, 1, kSurfaceRefinementMetadata, none.data()), kBagSuccess);
  }
  EXPECT_EQ(bagUpdateSurface(file_, kSurfaceElevation), kBagSuccess);
  for (const int surface : {kSurfaceNodeGroup, kSurfaceRefinementMetadata, kSurfaceRefinement,
                            kSurfaceRefinementNodeGroup}) {
    EXPECT_EQ(bagUpdateOptSurface(file_, surface), kBagSuccess);
  }
  EXPECT_EQ(close(), kBagSuccess);
  const Reader reader(path_);
  EXPECT_EQ(reader.attribute("elevation", "Minimum Elevation Value"), kBagNullValue);
  EXPECT_EQ(reader.attribute("elevation", "Maximum Elevation Value"), kBagNullValue);
  EXPECT_EQ(reader.attribute("varres_metadata", "min_dimensions_x"), 0);
  EXPECT_EQ(reader.attribute("varres_metadata", "min_resolution_x"), -1);
  EXPECT_EQ(reader.attribute("varres_metadata", "max_resolution_y"), -1);
  EXPECT_EQ(reader.attribute("varres_refinements", "min_depth"), kBagNullValue);
  EXPECT_EQ(reader.attribute("varres_nodes", "max_n_samples"), 0);
  EXPECT_TRUE(reader.records<bagRefinementRecord>("varres_refinements").empty());
  EXPECT_TRUE(reader.records<bagRefinementNodeRecord>("varres_nodes").empty());
}

TEST_F(BagFile, ElementsNeverWrittenAreNull) {
  ASSERT_EQ(create({.name = "grid", .rows = 40, .columns = 5}), kBagSuccess);
  EXPECT_EQ(writeElevations(33, 1, {-1, -2}), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  std::vector<float> expected(200, kBagNullValue);
  expected[33 * 5 + 1] = -1;
  expected[33 * 5 + 2] = -2;
  EXPECT_EQ(Reader(path_).records<float>("elevation"), expected);
}

TEST_F(BagFile, RowsInAnyOrderAndOverlappingRunsEndAsTheLastWriteLeftThem) {
  constexpr std::uint32_t kRows = 70;
  constexpr std::uint32_t kColumns = 2500;
  ASSERT_EQ(create({.name = "grid", .rows = kRows, .columns = kColumns}), kBagSuccess);
  constexpr unsigned kSeed = 20240506;
  std::mt19937 random(kSeed);
  SCOPED_TRACE("seed " + std::to_string(kSeed));
  std::vector<float> model(std::size_t{kRows} * kColumns, kBagNullValue);
  for (int run = 0; run < 300; ++run) {
    const std::uint32_t row = random() % kRows;
    const std::uint32_t first = random() % kColumns;
    const std::uint32_t count = 1 + random() % (kColumns - first);
    std::vector<float> elevations(count);
    for (float& elevation : elevations) elevation = -static_cast<float>(random() % 100000);
    std::copy(elevations.begin(), elevations.end(),
              model.begin() + static_cast<std::ptrdiff_t>(row) * kColumns + first);
    ASSERT_EQ(writeElevations(row, first, elevations), kBagSuccess);
    if (run % 100 == 50) {
      EXPECT_EQ(bagUpdateSurface(file_, kSurfaceElevation), kBagSuccess);
    }
  }
  EXPECT_EQ(bagUpdateSurface(file_, kSurfaceElevation), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  const Reader reader(path_);
  EXPECT_EQ(reader.records<float>("elevation"), model);
  std::erase(model, kBagNullValue);
  EXPECT_EQ(reader.attribute("elevation", "Minimum Elevation Value"),
            *std::min_element(model.begin(), model.end()));
  EXPECT_EQ(reader.attribute("elevation", "Maximum Elevation Value"),
            *std::max_element(model.begin(), model.end()));
}

TEST_F(BagFile, ExtremesForgetWhatWasOverwritten) {
  ASSERT_EQ(create({.name = "grid", .rows = 1, .columns = 2}), kBagSuccess);
  EXPECT_EQ(writeElevations(0, 0, {-1, -900}), kBagSuccess);
  EXPECT_EQ(bagUpdateSurface(file_, kSurfaceElevation), kBagSuccess);
  EXPECT_EQ(writeElevations(0, 1, {-2}), kBagSuccess);
  EXPECT_EQ(bagUpdateSurface(file_, kSurfaceElevation), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  EXPECT_EQ(Reader(path_).attribute("elevation", "Minimum Elevation Value"), -2);
}

TEST_F(BagFile, RunsOfRefinementsLieEndToEndAcrossChunks) {
  // More than two windows of the one-row layers, in runs that fit no chunk.
  constexpr std::uint32_t kNodes = 300001;
  ASSERT_EQ(create({.name = "grid", .rows = 2, .columns = 2}), kBagSuccess);
  ASSERT_EQ(bagCreateVariableResolutionLayers(file_, kNodes, 1), kBagSuccess);
  std::vector<bagRefinementRecord> refinements;
  std::vector<bagRefinementNodeRecord> nodes;
  for (std::uint32_t node = 0; node < kNodes; ++node) {
    refinements.push_back({-static_cast<float>(node), static_cast<float>(node) / 2});
    nodes.push_back({static_cast<float>(node % 5), node % 7, node});
  }
  refinements[17] = {kBagNullValue, kBagNullValue};
  nodes[17] = {kBagNullValue, 0, 0};
  for (std::uint32_t first = 0; first < kNodes;) {
    const std::uint32_t last = std::min(kNodes, first + 777) - 1;
    ASSERT_EQ(bagWriteRow(file_, 0, first, last, kSurfaceRefinement, &refinements[first]), 0);
    ASSERT_EQ(bagWriteRow(file_, 0, first, last, kSurfaceRefinementNodeGroup, &nodes[first]), 0);
    first = last + 1;
  }
  EXPECT_EQ(bagUpdateOptSurface(file_, kSurfaceRefinement), kBagSuccess);
  EXPECT_EQ(bagUpdateOptSurface(file_, kSurfaceRefinementNodeGroup), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  const Reader reader(path_);
  const auto read_refinements = reader.records<bagRefinementRecord>("varres_refinements");
  const auto read_nodes = reader.records<bagRefinementNodeRecord>("varres_nodes");
  ASSERT_EQ(read_refinements.size(), kNodes);
  ASSERT_EQ(read_nodes.size(), kNodes);
  for (std::uint32_t node = 0; node < kNodes; ++node) {
    ASSERT_EQ(read_refinements[node].elevation_m, refinements[node].elevation_m) << node;
    ASSERT_EQ(read_refinements[node].uncertainty_m, refinements[node].uncertainty_m) << node;
    ASSERT_EQ(read_nodes[node].hypothesis_strength, nodes[node].hypothesis_strength) << node;
    ASSERT_EQ(read_nodes[node].hypothesis_count, nodes[node].hypothesis_count) << node;
    ASSERT_EQ(read_nodes[node].sample_count, nodes[node].sample_count) << node;
  }
  EXPECT_EQ(reader.attribute("varres_refinements", "min_depth"), -300000);
  EXPECT_EQ(reader.attribute("varres_refinements", "max_depth"), 0);
  EXPECT_EQ(reader.attribute("varres_refinements", "max_uncrt"), 150000);
  EXPECT_EQ(reader.attribute("varres_nodes", "min_num_hypotheses"), 0);
  EXPECT_EQ(reader.attribute("varres_nodes", "max_n_samples"), 300000);
}

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
  }
}

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

TEST(BagFiles, AreWrittenByManyThreadsAtOnceAsByOneAlone) {
  const TestFolder folder;
  const TestGrid grid = {.name = "grid",
                         .rows = 100,
                         .columns = 1100,
                         .nodes_per_side = [](std::uint32_t row, std::uint32_t column) {
                           return (row + column) % 7 == 0 ? 3U : 0U;
                         }};
  ASSERT_EQ(writeGrid(folder / "alone.bag", grid), kBagSuccess);
  std::vector<bagError> statuses(6, -1);
  std::vector<std::thread> threads;
  for (std::size_t index = 0; index < statuses.size(); ++index) {
    threads.emplace_back([&, index] {
      statuses[index] = writeGrid(folder / (std::to_string(index) + ".bag"), grid);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(statuses, std::vector<bagError>(6, kBagSuccess));
  const std::string alone = readText(folder / "alone.bag");
  for (std::size_t index = 0; index < statuses.size(); ++index) {
    EXPECT_TRUE(readText(folder / (std::to_string(index) + ".bag")) == alone) << index;
  }
}

}  // namespace
}  // namespace quarro::bag
