// The records of a written BAG, read back from its file, and what is said on the way.
#include "output/bag_writer.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <thread>

#include <gmock/gmock.h>
#include <hdf5.h>

#include "bag/bag.h"
#include "output/file_size_limit.h"
#include "output/utm_projection.h"
#include "results/client_fixture.h"
#include "support/test_directory.h"

namespace quarro {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

constexpr float kNull = 1000000.0F;

// The members of a compound record as they lie in memory, four bytes each: f float, u unsigned.
struct Member {
  const char* name;
  char type;
};

struct BagFile {
  explicit BagFile(const std::string& path)
      : id(H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT)) {}
  BagFile(const BagFile&) = delete;
  BagFile& operator=(const BagFile&) = delete;
  ~BagFile() { H5Fclose(id); }

  // All records of a layer; of a plain one when no members are named.
  template <typename Record>
  std::vector<Record> Read(const std::string& layer,
                           const std::vector<Member>& members = {}) const {
    hid_t type = H5T_NATIVE_FLOAT;
    if (!members.empty()) {
      type = H5Tcreate(H5T_COMPOUND, sizeof(Record));
      std::size_t offset = 0;
      for (const Member& member : members) {
        H5Tinsert(type, member.name, offset,
                  member.type == 'f' ? H5T_NATIVE_FLOAT : H5T_NATIVE_UINT32);
        offset += 4;
      }
    }
    const hid_t set = H5Dopen2(id, ("/BAG_root/" + layer).c_str(), H5P_DEFAULT);
    const hid_t space = H5Dget_space(set);
    std::vector<Record> records(static_cast<std::size_t>(H5Sget_simple_extent_npoints(space)));
    EXPECT_GE(H5Dread(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, records.data()), 0) << layer;
    H5Sclose(space);
    H5Dclose(set);
    if (!members.empty()) {
      H5Tclose(type);
    }
    return records;
  }

  hid_t id;
};

struct Node {
  float strength;
  std::uint32_t count;
  friend bool operator==(const Node&, const Node&) = default;
};
struct Metadata {
  std::uint32_t index, x, y;
  float resolution_x, resolution_y, corner_x, corner_y;
  friend bool operator==(const Metadata&, const Metadata&) = default;
};
struct Refinement {
  float depth, uncertainty;
  friend bool operator==(const Refinement&, const Refinement&) = default;
};
struct RefinedRecord {
  float strength;
  std::uint32_t count, samples;
  friend bool operator==(const RefinedRecord&, const RefinedRecord&) = default;
};

const std::vector<Member> kNodeMembers = {{"hyp_strength", 'f'}, {"num_hypotheses", 'u'}};
const std::vector<Member> kMetadataMembers = {
    {"index", 'u'},        {"dimensions_x", 'u'}, {"dimensions_y", 'u'}, {"resolution_x", 'f'},
    {"resolution_y", 'f'}, {"sw_corner_x", 'f'},  {"sw_corner_y", 'f'}};
const std::vector<Member> kRefinementMembers = {{"depth", 'f'}, {"depth_uncrt", 'f'}};
const std::vector<Member> kRefinedNodeMembers = {
    {"hyp_strength", 'f'}, {"num_hypotheses", 'u'}, {"n_samples", 'u'}};

constexpr Metadata kNotRefinedMetadata = {4294967295U, 0, 0, -1.0F, -1.0F, -1.0F, -1.0F};

MParams ParamsWithTemplate(const char* name) {
  MParams params;
  params.Set("ClientServer", "BAGMetadataTemplate",
             std::string(QUARRO_SOURCE_DIR "/examples/") + name);
  return params;
}

class BagWriter : public ClientTest {
 protected:
  BagWriter() : ClientTest(ParamsWithTemplate("bag_metadata_north.xml")) {
    state.projection.Set(std::make_shared<const UTMProjection>(19));
  }

  // 2 rows of 3 columns, 16 m apart: (0,0) empty, (0,1) refined 3 x 3, (0,2) not refined,
  // (1,0) refined 2 x 2, (1,1) with a resolution but no refinement, (1,2) empty.
  void FillGrid() {
    for (std::size_t i = 0; i < 9; ++i) {
      nodes_of_three_[i].estimate = {.depth_m = 10.0F + static_cast<float>(i),
                                     .variance_m2 = 0.0625F,
                                     .hypothesis_count = static_cast<std::uint32_t>(i),
                                     .hypothesis_strength = 0.5F};
      nodes_of_three_[i].sample_count = static_cast<std::uint16_t>(65527 + i);
    }
    nodes_of_three_[4].estimate.depth_m = kNoDepth;
    for (RefinedNode& node : nodes_of_two_) {
      node.estimate = {.depth_m = 30.0F, .variance_m2 = 1.0F};
    }
    cells_[1] = {.resolution_m = 2.0F, .estimate = Estimate(20.0F), .refinement = &three_};
    cells_[2].estimate = Estimate(21.0F);
    cells_[3] = {.resolution_m = 4.0F, .estimate = Estimate(22.0F), .refinement = &two_};
    cells_[4] = {.resolution_m = 4.0F, .estimate = Estimate(-1.5F)};
  }

  static NodalDepth Estimate(float depth_m) {
    return {.depth_m = depth_m,
            .variance_m2 = 0.25F,
            .hypothesis_count = 3,
            .hypothesis_strength = 1.5F};
  }

  void Write(const std::string& path, double south = 4700000.0) {
    WriteVariableResolutionBag(state, {2, 3, cells_.data(), nullptr}, south + 16.0, south, 300000.0,
                               300032.0, path);
  }

  // Fails to write and returns the last message.
  std::string Failure(const std::string& path, double south = 4700000.0) {
    EXPECT_THROW(Write(path, south), CommandState::bag_output_failed);
    return console->Take().back();
  }

  std::vector<std::string> FilesThere() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.Path())) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

  TestDirectory directory_;
  std::vector<RefinedNode> nodes_of_three_{9};
  std::vector<RefinedNode> nodes_of_two_{4};
  RefinementBlock three_{3, 3, nodes_of_three_.data()};
  RefinementBlock two_{2, 2, nodes_of_two_.data()};
  std::vector<DepthCell> cells_{6};
};

TEST_F(BagWriter, LowResolutionLayersHoldTheGridRowByRow) {
  FillGrid();
  Write(directory_.Path("depth.bag"));
  const BagFile file(directory_.Path("depth.bag"));
  EXPECT_THAT(file.Read<float>("elevation"),
              ElementsAre(kNull, -20.0F, -21.0F, -22.0F, 1.5F, kNull));
  EXPECT_THAT(file.Read<float>("uncertainty"), ElementsAre(kNull, 0.5F, 0.5F, 0.5F, 0.5F, kNull));
  const Node data = {1.5F, 3};
  const Node none = {kNull, 0};
  EXPECT_THAT(file.Read<Node>("node", kNodeMembers),
              ElementsAre(none, data, data, data, data, none));
}

TEST_F(BagWriter, RefinementsAreCentredInTheirCellsAndIndexedEndToEnd) {
  FillGrid();
  Write(directory_.Path("depth.bag"));
  const BagFile file(directory_.Path("depth.bag"));
  EXPECT_THAT(file.Read<Metadata>("varres_metadata", kMetadataMembers),
              ElementsAre(kNotRefinedMetadata, Metadata{0, 3, 3, 2.0F, 2.0F, 6.0F, 6.0F},
                          kNotRefinedMetadata, Metadata{9, 2, 2, 4.0F, 4.0F, 6.0F, 6.0F},
                          kNotRefinedMetadata, kNotRefinedMetadata));
}

TEST_F(BagWriter, RefinedNodesKeepTheirOrderAndNullsTheirPlace) {
  FillGrid();
  Write(directory_.Path("depth.bag"));
  const BagFile file(directory_.Path("depth.bag"));
  std::vector<Refinement> depths;
  std::vector<RefinedRecord> nodes;
  for (std::uint32_t i = 0; i < 9; ++i) {
    depths.push_back({-10.0F - static_cast<float>(i), 0.25F});
    nodes.push_back({0.5F, i, 65527 + i});
  }
  depths[4] = {kNull, kNull};
  nodes[4] = {kNull, 0, 0};
  depths.resize(13, {-30.0F, 1.0F});
  nodes.resize(13, {0.0F, 0, 0});
  EXPECT_EQ(file.Read<Refinement>("varres_refinements", kRefinementMembers), depths);
  EXPECT_EQ(file.Read<RefinedRecord>("varres_nodes", kRefinedNodeMembers), nodes);
}

// Both axes take the dimension from nodes_b and the corner from nodes_a.
TEST_F(BagWriter, AnOblongRefinementIsDescribedByOneSideForBothAxes) {
  FillGrid();
  three_.nodes_a = 1;
  three_.nodes_b = 9;
  Write(directory_.Path("depth.bag"));
  const BagFile file(directory_.Path("depth.bag"));
  EXPECT_EQ(file.Read<Metadata>("varres_metadata", kMetadataMembers)[1],
            (Metadata{0, 9, 9, 2.0F, 2.0F, 8.0F, 8.0F}));
}

TEST_F(BagWriter, AGridWithoutRefinementsHasNullMetadataAndNoRefinedNodes) {
  for (DepthCell& cell : cells_) {
    cell.estimate = Estimate(20.0F);
  }
  Write(directory_.Path("depth.bag"));
  const BagFile file(directory_.Path("depth.bag"));
  EXPECT_THAT(file.Read<Metadata>("varres_metadata", kMetadataMembers),
              testing::Each(kNotRefinedMetadata));
  EXPECT_THAT(file.Read<float>("elevation"), testing::Each(-20.0F));
  EXPECT_THAT(file.Read<Refinement>("varres_refinements", kRefinementMembers), testing::IsEmpty());
  EXPECT_THAT(file.Read<RefinedRecord>("varres_nodes", kRefinedNodeMembers), testing::IsEmpty());
}

// The distance to the next column, of which there is none, is that of the rows.
TEST_F(BagWriter, ALoneColumnIsAsWideAsTheRowsAreApart) {
  FillGrid();
  const std::vector<DepthCell> column = {cells_[1], cells_[3]};
  const std::string path = directory_.Path("depth.bag");
  WriteVariableResolutionBag(state, {2, 1, column.data(), nullptr}, 4700016.0, 4700000.0, 300000.0,
                             300000.0, path);
  EXPECT_THAT(BagFile(path).Read<Metadata>("varres_metadata", kMetadataMembers),
              ElementsAre(Metadata{0, 3, 3, 2.0F, 2.0F, 6.0F, 6.0F},
                          Metadata{9, 2, 2, 4.0F, 4.0F, 6.0F, 6.0F}));
}

TEST_F(BagWriter, ALoneRowHasTheSpacingOfItsColumns) {
  FillGrid();
  const std::vector<DepthCell> row = {cells_[1], cells_[3]};
  const std::string path = directory_.Path("depth.bag");
  WriteVariableResolutionBag(state, {1, 2, row.data(), nullptr}, 4700000.0, 4700000.0, 300000.0,
                             300016.0, path);
  EXPECT_THAT(BagFile(path).Read<Metadata>("varres_metadata", kMetadataMembers),
              ElementsAre(Metadata{0, 3, 3, 2.0F, 2.0F, 6.0F, 6.0F},
                          Metadata{9, 2, 2, 4.0F, 4.0F, 6.0F, 6.0F}));
}

TEST_F(BagWriter, AGridWithoutDataIsWritten) {
  Write(directory_.Path("depth.bag"));
  EXPECT_EQ(console->Take()[1],
            "1 Found elevation (3.40282e+38, -3.40282e+38), uncrt (3.40282e+38, -1).");
  const BagFile file(directory_.Path("depth.bag"));
  EXPECT_THAT(file.Read<float>("elevation"), testing::Each(kNull));
}

TEST_F(BagWriter, EveryStepIsTold) {
  FillGrid();
  const std::string path = directory_.Path("depth.bag");
  Write(path);
  EXPECT_THAT(
      console->Take(),
      ElementsAre(
          "1 Finding min/max for depth/uncrt (for metadata)...",
          "1 Found elevation (-22, 1.5), uncrt (0.5, 0.5).", "1 Generating metadata file ...",
          MatchesRegex("1 Metadata file generated as \"" + directory_.Path() +
                       "/mera_bag_metadata\\..{6}\"\\."),
          "1 Creating BAG definition from metadata file ...", "1 Creating BAG file ...",
          "1 Generating Elevation and Uncertainty mandatory layers ... ",
          "1 Updating bounds in Elevation mandatory layer ... ",
          "1 Updating bounds in Uncertainty mandatory layer ... ",
          "1 Generating NodeGroup information into layer ...", "1 Updating bounds in NodeGroup ...",
          "1 Generating Variable Resolution Metadata Group information into layer ... ",
          "1 Updating bounds in Variable Resolution Metadata Group ...",
          "1 Generating for Variable Resolution Refinement and Node Groups (simultaneously) ...",
          "1 Updating bounds in Variable Resolution Refinement Group ...",
          "1 Updating bounds in Variable Resolution Node Group ..."));
  EXPECT_THAT(FilesThere(), ElementsAre("depth.bag"));
}

TEST_F(BagWriter, APathWithoutADirectoryPutsTheMetadataHere) {
  FillGrid();
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(directory_.Path());
  Write("depth.bag");
  std::filesystem::current_path(before);
  EXPECT_THAT(console->Take()[3],
              MatchesRegex("1 Metadata file generated as \"\\./mera_bag_metadata\\..{6}\"\\."));
  EXPECT_THAT(FilesThere(), ElementsAre("depth.bag"));
}

// What the library says of a status.
std::string TextOf(bagError status) {
  const char* text = nullptr;
  EXPECT_EQ(bagGetErrorString(status, &text), 0);
  return text;
}

TEST_F(BagWriter, AContradictionInTheMetadataIsToldAndLeavesNothing) {
  FillGrid();
  state.projection.Set(std::make_shared<const UTMProjection>(-19));  // the template is northern
  EXPECT_EQ(Failure(directory_.Path("depth.bag")),
            "4 BAG file initialisation failed: " + TextOf(kBagMetadataPlaceContradiction));
  EXPECT_THAT(FilesThere(), testing::IsEmpty());
}

TEST_F(BagWriter, APathThatCannotBeCreatedIsToldAndLeavesNoMetadata) {
  FillGrid();
  std::filesystem::create_directory(directory_.Path("depth.bag"));
  EXPECT_EQ(Failure(directory_.Path("depth.bag")),
            "4 BAG file creation failed: " + TextOf(kBagNotRegularFile));
  EXPECT_THAT(FilesThere(), ElementsAre("depth.bag"));
}

TEST_F(BagWriter, ResultsArriveAsBagsThroughTheirCallBack) {
  FillGrid();
  const std::string path = directory_.Path("depth.bag");
  ResultDepth result;
  result.result_number = 3;
  result.bounds = SGBoundingBox(300000.0, 4700000.0, 300032.0, 4700016.0);
  result.grid = {2, 3, cells_.data(), nullptr};
  state.pending_results.Add(3, path);
  AnswerWith(result);
  state.OnDepthBagReady(SEResultToken());
  EXPECT_EQ(Posted(), Lines{"1 [M1] result 3 (output to \"" + path +
                            "\") transfered (0 results outstanding)"});
  EXPECT_EQ(BagFile(path).Read<float>("elevation")[1], -20.0F);
}

// A disk that fills up at each of the steps, of which a limit on the size of files is a stand-in.
class FullDisk : public BagWriter {
 protected:
  // Bytes of the file when the disk is full.
  std::uintmax_t SizeAfter(const std::string& message) {
    FillGrid();
    const std::string path = directory_.Path("probe.bag");
    std::uintmax_t size = 0;
    auto probe = std::make_shared<Probe>([&](const std::string& text) {
      if (text == message) {
        size = std::filesystem::file_size(path);
      }
    });
    Slog("comproc").AddDrain(probe);
    Write(path);
    Slog("comproc").RemoveDrains();
    Slog("comproc").AddDrain(console);
    std::filesystem::remove(path);
    console->Take();
    return size;
  }

 private:
  class Probe : public SlogDrain {
   public:
    explicit Probe(std::function<void(const std::string&)> look) : look_(std::move(look)) {}
    void Write(const std::string& /*channel*/, int /*level*/, const std::string& text) override {
      look_(text);
    }

   private:
    std::function<void(const std::string&)> look_;
  };
};

constexpr char kAfterLayers[] = "Generating Elevation and Uncertainty mandatory layers ... ";

TEST_F(FullDisk, OnCreationOfTheLayersIsTold) {
  const std::uintmax_t whole = SizeAfter(kAfterLayers);
  const FileSizeLimit limit(whole - 1);
  EXPECT_EQ(Failure(directory_.Path("depth.bag")),
            "4 BAG variable resolution layer creation failed: " + TextOf(kBagWriteFailed));
  EXPECT_THAT(FilesThere(), ElementsAre("depth.bag.incomplete"));
}

TEST_F(FullDisk, OnAWriteIsToldAndTheResultIsNotCalledTransferred) {
  const std::uintmax_t layers = SizeAfter(kAfterLayers);
  const std::string path = directory_.Path("depth.bag");
  ResultDepth result;
  result.result_number = 3;
  result.bounds = SGBoundingBox(300000.0, 4700000.0, 300032.0, 4700016.0);
  result.grid = {2, 3, cells_.data(), nullptr};
  state.pending_results.Add(3, path);
  AnswerWith(result);
  {
    const FileSizeLimit limit(layers);
    state.OnDepthBagReady(SEResultToken());
  }
  EXPECT_EQ(Posted(), Lines{"1 [M1] failed to generate result 3 to \"" + path +
                            "\" because BAG generation failed."});
  EXPECT_EQ(console->Take().back(), "4 BAG file is incomplete: " + TextOf(kBagWriteFailed));
  EXPECT_THAT(FilesThere(), ElementsAre("depth.bag.incomplete"));
  EXPECT_EQ(state.pending_results.Count(), 0U);
}

TEST_F(FullDisk, OnCreationIsTold) {
  FillGrid();
  const FileSizeLimit limit(12000);  // the metadata document fits, the file does not
  EXPECT_EQ(Failure(directory_.Path("depth.bag")),
            "4 BAG file creation failed: " + TextOf(kBagCreateFailed));
  EXPECT_THAT(FilesThere(), ElementsAre("depth.bag.incomplete"));
}

// The console may replace the projection, and name another grid, while files are written.
TEST_F(BagWriter, SeveralFilesAreWrittenAtOnce) {
  FillGrid();
  std::vector<std::thread> writers;
  for (int i = 0; i < 3; ++i) {
    writers.emplace_back([this, i] { Write(directory_.Path(std::to_string(i) + ".bag")); });
  }
  for (int i = 0; i < 50; ++i) {
    state.projection.Set(std::make_shared<const UTMProjection>(19));
    state.grid_name.Set("survey" + std::to_string(i));
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
  EXPECT_THAT(FilesThere(), testing::UnorderedElementsAre("0.bag", "1.bag", "2.bag"));
  const std::string path = directory_.Path("2.bag");
  EXPECT_EQ(BagFile(path).Read<float>("elevation")[1], -20.0F);
}

}  // namespace
}  // namespace quarro
