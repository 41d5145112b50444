// The filled metadata document and what is said when it cannot be made.
#include "output/bag_metadata.h"

#include <algorithm>
#include <filesystem>
#include <locale>
#include <regex>

#include <gmock/gmock.h>
#include <unistd.h>

#include "output/file_size_limit.h"
#include "output/utm_projection.h"
#include "results/client_fixture.h"
#include "support/test_directory.h"

namespace quarro {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

const std::vector<std::string> kAllKeys = {"MERA_BAG_UNIQUE_ID",
                                           "MERA_BAG_RESPONSIBLE_PARTY",
                                           "MERA_BAG_CURRENT_DATE",
                                           "MERA_BAG_ROW_COUNT",
                                           "MERA_BAG_ROW_SPACING",
                                           "MERA_BAG_COL_COUNT",
                                           "MERA_BAG_COL_SPACING",
                                           "MERA_BAG_CORNER_COORDS",
                                           "MERA_BAG_DATASET_TITLE",
                                           "MERA_BAG_DATASET_DATE",
                                           "MERA_BAG_INPUT_RESPONSIBLE_PARTY",
                                           "MERA_BAG_ABSTRACT",
                                           "MERA_BAG_WEST_LONGITUDE",
                                           "MERA_BAG_SOUTH_LATITUDE",
                                           "MERA_BAG_EAST_LONGITUDE",
                                           "MERA_BAG_NORTH_LATITUDE",
                                           "MERA_BAG_PROJECTION_SYSTEM",
                                           "MERA_BAG_PROJECTION_MERIDIAN",
                                           "MERA_BAG_LINEAGE_DESC",
                                           "MERA_BAG_LINEAGE_DATETIME"};

// One line a key: "<key in lower case>=<key>".
std::string TemplateOf(const std::vector<std::string>& keys) {
  std::string text;
  for (const std::string& key : keys) {
    std::string label = key.substr(std::string("MERA_BAG_").size());
    std::transform(label.begin(), label.end(), label.begin(),
                   [](char c) { return static_cast<char>(c == '_' ? '_' : c - 'A' + 'a'); });
    text += label;
    text += "=" + key + "\n";
  }
  return text;
}

MParams ParamsWithTemplate(const std::string& path) {
  MParams params;
  params.Set("ClientServer", "BAGMetadataTemplate", path);
  return params;
}

class BagMetadata : public testing::Test {
 protected:
  BagMetadata() { state().projection.Set(std::make_shared<const UTMProjection>(19)); }

  CommandState& state() { return client_.processor.State(); }
  void UseTemplate(const std::string& text) { directory_.Write("template.xml", text); }

  // The document for 11 x 11 nodes in a kilometre's square; its path goes to `path_`.
  std::string Generate() {
    path_ = directory_.Path("out");
    std::filesystem::create_directory(path_);
    GenerateBagMetadata(state(), 11, 11, 4701000.0, 4700000.0, 300000.0, 301000.0, path_);
    return ReadWholeFile(path_);
  }

  Lines Failures() {
    const std::string out = directory_.Path("out");
    std::string location = out;
    std::filesystem::create_directory(out);
    EXPECT_THROW(
        GenerateBagMetadata(state(), 11, 11, 4701000.0, 4700000.0, 300000.0, 301000.0, location),
        CommandState::bag_output_failed);
    EXPECT_TRUE(std::filesystem::is_empty(out)) << "a document is left behind";
    return console_->Take();
  }

  TestDirectory directory_;
  std::string path_;

 private:
  // The state's template path is fixed when it is made, so the client comes after the directory.
  struct Client {
    explicit Client(const MParams& params) : processor(&engine, params) {}
    FakeFrontEnd engine;
    CommandProcessor processor;
  };

 protected:
  Client client_{ParamsWithTemplate(directory_.Path("template.xml"))};
  std::shared_ptr<CaptureDrain> console_ = [] {
    auto drain = std::make_shared<CaptureDrain>();
    Slog("comproc").RemoveDrains();
    Slog("comproc").AddDrain(drain);
    return drain;
  }();
};

TEST_F(BagMetadata, ATemplateWithEveryKeyGetsAllTwentyValues) {
  UseTemplate(TemplateOf(kAllKeys));
  state().grid_name.Set("survey");
  const std::string document = Generate();
  double west = 0.0;
  double south = 0.0;
  double east = 0.0;
  double north = 0.0;
  const UTMProjection projection(19);
  projection.Inverse(300000.0, 4700000.0, west, south);
  projection.Inverse(301000.0, 4701000.0, east, north);
  const auto degrees = [](double value) {
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), "%.8f", value);
    return std::string(text.data());
  };
  const std::string date = "[0-9]{4}-[0-9]{2}-[0-9]{2}";
  const std::regex expected(
      "unique_id=survey\n"
      "responsible_party=MERA\n"
      "current_date=(" +
      date +
      ")\n"
      "row_count=11\n"
      "row_spacing=100\n"
      "col_count=11\n"
      "col_spacing=100\n"
      "corner_coords=300000\\.000,4700000\\.000 301000\\.000,4701000\\.000\n"
      "dataset_title=survey\n"
      "dataset_date=\\1\n"
      "input_responsible_party=MERA\n"
      "abstract=This is a preliminary metadata file generated by MERA for an output grid; some "
      "verification and editing is required\\.\n"
      "west_longitude=" +
      degrees(west) +
      "\n"
      "south_latitude=" +
      degrees(south) +
      "\n"
      "east_longitude=" +
      degrees(east) +
      "\n"
      "north_latitude=" +
      degrees(north) +
      "\n"
      "projection_system=UTM-19N-WGS84\n"
      "projection_meridian=-69\n"
      "lineage_desc=This file was created with MERA\\.\n"
      "lineage_datetime=\\1T[0-9]{2}:[0-9]{2}:[0-9]{2}(\\.[0-9]{6})?\n");
  EXPECT_TRUE(std::regex_match(document, expected)) << document;
  EXPECT_NEAR(west, -71.43, 0.01);
  EXPECT_NEAR(south, 42.43, 0.01);
  EXPECT_EQ(console_->Take(), Lines());
}

TEST_F(BagMetadata, TheDocumentIsNamedWithSixCharactersInTheDirectoryGiven) {
  UseTemplate(TemplateOf(kAllKeys));
  Generate();
  EXPECT_THAT(path_.substr(directory_.Path("out").size()),
              MatchesRegex("/mera_bag_metadata\\.[A-Za-z0-9]{6}"));
  const std::string first = path_;
  Generate();
  EXPECT_NE(path_, first);
  EXPECT_TRUE(std::filesystem::exists(first));
}

TEST_F(BagMetadata, SpacingsHaveSeventeenDigits) {
  UseTemplate(TemplateOf(kAllKeys));
  path_ = directory_.Path();
  GenerateBagMetadata(state(), 11, 3, 1.0, 0.0, 0.0, 1.0, path_);
  const std::string document = ReadWholeFile(path_);
  EXPECT_THAT(document, testing::HasSubstr("row_spacing=0.10000000000000001\n"));
  EXPECT_THAT(document, testing::HasSubstr("col_spacing=0.5\n"));
}

TEST_F(BagMetadata, ASingleRowHasAnInfiniteOrUndefinedSpacing) {
  UseTemplate(TemplateOf(kAllKeys));
  path_ = directory_.Path();
  GenerateBagMetadata(state(), 1, 1, 0.0, 0.0, 0.0, 1.0, path_);
  const std::string document = ReadWholeFile(path_);
  EXPECT_THAT(document, testing::ContainsRegex("row_spacing=-?nan\n"));
  EXPECT_THAT(document, testing::HasSubstr("col_spacing=inf\n"));
}

TEST_F(BagMetadata, ASecondOccurrenceOnALineStays) {
  UseTemplate(TemplateOf(kAllKeys) +
              "MERA_BAG_ROW_COUNT MERA_BAG_ROW_COUNT MERA_BAG_COL_COUNT\nMERA_BAG_ROW_COUNT");
  EXPECT_THAT(Generate(), testing::EndsWith("\n11 MERA_BAG_ROW_COUNT 11\n11\n"));
}

TEST_F(BagMetadata, AGridsNameThatHoldsALaterKeyIsReplacedAgain) {
  UseTemplate(TemplateOf(kAllKeys));
  state().grid_name.Set("of MERA_BAG_COL_COUNT by MERA_BAG_UNIQUE_ID");
  const std::string document = Generate();
  EXPECT_THAT(document, testing::StartsWith("unique_id=of 11 by MERA_BAG_UNIQUE_ID\n"));
  EXPECT_THAT(document,
              testing::HasSubstr("\ndataset_title=of MERA_BAG_COL_COUNT by MERA_BAG_UNIQUE_ID\n"));
}

TEST_F(BagMetadata, LinesWithoutKeysAreKept) {
  UseTemplate("<?xml?>\n\n" + TemplateOf(kAllKeys) + "\tend\r\n\n");
  const std::string document = Generate();
  EXPECT_THAT(document, testing::StartsWith("<?xml?>\n\nunique_id="));
  EXPECT_THAT(document, testing::EndsWith("\n\tend\r\n\n"));
}

TEST_F(BagMetadata, MissingKeysAreAllNamedInOrderAndNothingRemains) {
  std::vector<std::string> keys = kAllKeys;
  std::erase(keys, "MERA_BAG_LINEAGE_DESC");
  std::erase(keys, "MERA_BAG_ABSTRACT");
  UseTemplate(TemplateOf(keys));
  EXPECT_THAT(Failures(), ElementsAre("4 BAG file creation failed: XML template file is missing "
                                      "MERA_BAG_ABSTRACT (required for value substitution).",
                                      "4 BAG file creation failed: XML template file is missing "
                                      "MERA_BAG_LINEAGE_DESC (required for value substitution)."));
}

TEST_F(BagMetadata, AnEmptyTemplateMissesEveryKey) {
  UseTemplate("");
  EXPECT_EQ(Failures().size(), kAllKeys.size());
}

TEST_F(BagMetadata, WithoutAProjectionNothingElseIsSaidAndNoFileMade) {
  state().projection.Set(nullptr);  // nor is there a template
  EXPECT_THAT(
      Failures(),
      ElementsAre("4 BAG metadata cannot be generated because the projection system is not set."));
}

TEST_F(BagMetadata, AMissingTemplateIsNamed) {
  const std::string path = directory_.Path("template.xml");
  const std::string expected =
      "4 BAG file creation failed: XML template file " + path + " not found.";
  EXPECT_THAT(Failures(), ElementsAre(expected));
  std::filesystem::create_directory(path);
  EXPECT_THAT(Failures(), ElementsAre(expected));
}

TEST_F(BagMetadata, AMissingOutputDirectoryIsNamedWithTheWholePath) {
  UseTemplate(TemplateOf(kAllKeys));
  std::string location = directory_.Path("missing");
  EXPECT_THROW(GenerateBagMetadata(state(), 2, 2, 1.0, 0.0, 0.0, 1.0, location),
               CommandState::bag_output_failed);
  EXPECT_THAT(console_->Take(),
              ElementsAre(MatchesRegex("4 BAG file creation failed: XML output file \"" +
                                       directory_.Path("missing") +
                                       "/mera_bag_metadata\\..{6}\" could not be opened\\.")));
}

// Of a disk without space, of which a limit on the size of files is a stand-in.
TEST_F(BagMetadata, AFullDiskIsToldAndNothingRemains) {
  UseTemplate(TemplateOf(kAllKeys));
  const FileSizeLimit limit(100);
  EXPECT_THAT(Failures(),
              ElementsAre(MatchesRegex("4 BAG file creation failed: XML output file \"" +
                                       directory_.Path("out") +
                                       "/mera_bag_metadata\\..{6}\" could not be "
                                       "written \\(File too large\\)\\.")));
}

TEST_F(BagMetadata, ADirectoryThatTakesNoFilesIsNamed) {
  UseTemplate(TemplateOf(kAllKeys));
  std::string location = directory_.Path("closed");
  if (::geteuid() == 0) {
    GTEST_SKIP() << "the administrator may write in every directory: run this test as a plain user";
  }
  std::filesystem::create_directory(location);
  std::filesystem::permissions(
      location, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  EXPECT_THROW(GenerateBagMetadata(state(), 2, 2, 1.0, 0.0, 0.0, 1.0, location),
               CommandState::bag_output_failed);
  EXPECT_THAT(console_->Take(), ElementsAre(testing::EndsWith("\" could not be opened.")));
  EXPECT_TRUE(std::filesystem::is_empty(directory_.Path("closed")));
}

TEST_F(BagMetadata, AGridsNameStaysTextInXml) {
  UseTemplate(TemplateOf(kAllKeys));
  state().grid_name.Set("R&D <1> \"north\"");
  EXPECT_THAT(Generate(), testing::StartsWith("unique_id=R&amp;D &lt;1&gt; &quot;north&quot;\n"));
}

}  // namespace
}  // namespace quarro
