// What the definition takes from a metadata document, and what it refuses.

#include <array>
#include <clocale>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "bag/bag.h"
#include "bag/test_grid.h"

namespace quarro::bag {
namespace {

std::string textOf(bagError status) {
  const char* text = "no text";
  EXPECT_EQ(bagGetErrorString(status, &text), 0);
  return text;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const auto at = text.find(from);
  if (at == std::string::npos) throw std::runtime_error("not in the document: " + from);
  return text.replace(at, from.size(), to);
}

class Definition : public testing::Test {
 protected:
  ~Definition() override { bagFreeDefinition(&definition_); }

  bagError read(const std::string& document) {
    const auto path = folder_ / "metadata.xml";
    writeText(path, document);
    bagFreeDefinition(&definition_);
    definition_ = {};
    return bagInitDefinitionFromFile(&definition_, path.c_str());
  }

  std::string document(const TestGrid& grid) { return filledTemplate(templateOf(grid), grid); }

  TestFolder folder_;
  TestGrid grid_ = {.name = "a_grid", .rows = 11, .columns = 21};
  bagData definition_ = {};
};

TEST_F(Definition, HoldsThePlaceOfTheGridAndTheDocument) {
  const std::string text = document(grid_);
  ASSERT_EQ(read(text), kBagSuccess);
  EXPECT_EQ(definition_.rows, 11U);
  EXPECT_EQ(definition_.columns, 21U);
  EXPECT_EQ(definition_.row_spacing, 16.0);
  EXPECT_EQ(definition_.column_spacing, 16.0);
  EXPECT_EQ(definition_.west, 300000.0);
  EXPECT_EQ(definition_.south, 4700000.0);
  EXPECT_EQ(definition_.east, 300320.0);
  EXPECT_EQ(definition_.north, 4700160.0);
  EXPECT_NEAR(definition_.west_longitude, -71.43118, 1e-4);
  EXPECT_NEAR(definition_.south_latitude, 42.42652, 1e-4);
  EXPECT_GT(definition_.east_longitude, definition_.west_longitude);
  EXPECT_GT(definition_.north_latitude, definition_.south_latitude);
  EXPECT_EQ(std::string(definition_.metadata, definition_.metadata_size), text);
  EXPECT_EQ(std::string(definition_.horizontal_wkt).rfind("PROJCS[\"UTM-19N-WGS84\",GEOGCS", 0),
            0U);
  EXPECT_EQ(definition_.has_variable_resolution, 0);
}

TEST_F(Definition, IsReleasedOnceAndForAll) {
  ASSERT_EQ(read(document(grid_)), kBagSuccess);
  bagFreeDefinition(&definition_);
  EXPECT_EQ(definition_.metadata, nullptr);
  EXPECT_EQ(definition_.horizontal_wkt, nullptr);
  bagFreeDefinition(&definition_);
  bagFreeDefinition(nullptr);
}

TEST_F(Definition, NullPointersAreRefused) {
  EXPECT_EQ(bagInitDefinitionFromFile(nullptr, "x"), kBagBadArgument);
  EXPECT_EQ(bagInitDefinitionFromFile(&definition_, nullptr), kBagBadArgument);
  EXPECT_EQ(textOf(kBagBadArgument), "a pointer that must not be null is null");
}

TEST_F(Definition, MissingFileIsRefused) {
  EXPECT_EQ(bagInitDefinitionFromFile(&definition_, (folder_ / "none.xml").c_str()),
            kBagMetadataUnreadable);
  EXPECT_EQ(textOf(kBagMetadataUnreadable), "the metadata file does not exist or cannot be read");
}

TEST_F(Definition, FolderInPlaceOfAFileIsRefused) {
  EXPECT_EQ(bagInitDefinitionFromFile(&definition_, "/"), kBagMetadataUnreadable);
}

TEST_F(Definition, RefusedDocumentLeavesTheDefinitionAlone) {
  definition_.rows = 77;
  writeText(folder_ / "bad.xml", "<a>");
  EXPECT_NE(bagInitDefinitionFromFile(&definition_, (folder_ / "bad.xml").c_str()), kBagSuccess);
  EXPECT_EQ(definition_.rows, 77U);
  EXPECT_EQ(definition_.metadata, nullptr);
}

TEST_F(Definition, TextThatIsNotXmlIsRefused) {
  EXPECT_EQ(read("<gmi:MI_Metadata><gmd:language>"), kBagMetadataNotXml);
  EXPECT_EQ(textOf(kBagMetadataNotXml), "the metadata is not well-formed XML");
}

TEST_F(Definition, OtherRootIsRefused) {
  EXPECT_EQ(read("<html/>"), kBagMetadataNoRoot);
  EXPECT_EQ(textOf(kBagMetadataNoRoot), "the metadata's root element is not gmi:MI_Metadata");
}

TEST_F(Definition, DocumentWithoutAGridIsRefused) {
  EXPECT_EQ(read("<gmi:MI_Metadata/>"), kBagMetadataNoGrid);
  EXPECT_NE(textOf(kBagMetadataNoGrid).find("gmd:MD_Georectified"), std::string::npos);
}

// One element of the document, what it is replaced by, and the status that then comes with a text
// that names the element.
struct BadElement {
  std::string name;
  std::string from;
  std::string to;
  bagStatus status;
  std::string named;
};

class DefinitionWithABadElement : public Definition,
                                  public testing::WithParamInterface<BadElement> {};

TEST_P(DefinitionWithABadElement, IsRefusedAndTheTextNamesIt) {
  EXPECT_EQ(read(replaced(document(grid_), GetParam().from, GetParam().to)), GetParam().status);
  EXPECT_NE(textOf(GetParam().status).find(GetParam().named), std::string::npos);
}

const std::string kRowCount = "<gco:Integer>11</gco:Integer>";
const std::string kColumnCount = "<gco:Integer>21</gco:Integer>";
const std::string kSpacing = "<gco:Measure uom=\"m\">16</gco:Measure>";
const std::string kCorners = "300000.000,4700000.000 300320.000,4700160.000";

INSTANTIATE_TEST_SUITE_P(
    Bag, DefinitionWithABadElement,
    testing::Values(
        BadElement{"RowCountMissing", kRowCount, "", kBagMetadataNoRowCount, "number of rows"},
        BadElement{"RowCountZero", kRowCount, "<gco:Integer>0</gco:Integer>",
                   kBagMetadataNoRowCount, "number of rows"},
        BadElement{"RowCountNegative", kRowCount, "<gco:Integer>-3</gco:Integer>",
                   kBagMetadataNoRowCount, "number of rows"},
        BadElement{"RowCountUnfilled", kRowCount, "<gco:Integer>ROWS</gco:Integer>",
                   kBagMetadataNoRowCount, "number of rows"},
        BadElement{"ColumnCountMissing", kColumnCount, "", kBagMetadataNoColumnCount,
                   "number of columns"},
        BadElement{"ColumnCountTooLarge", kColumnCount, "<gco:Integer>4294967296</gco:Integer>",
                   kBagMetadataNoColumnCount, "number of columns"},
        BadElement{"RowSpacingMissing", kSpacing, "", kBagMetadataNoRowSpacing, "spacing of rows"},
        BadElement{"RowSpacingInfinite", kSpacing, "<gco:Measure uom=\"m\">inf</gco:Measure>",
                   kBagMetadataNoRowSpacing, "spacing of rows"},
        BadElement{"RowSpacingZero", kSpacing, "<gco:Measure uom=\"m\">0</gco:Measure>",
                   kBagMetadataNoRowSpacing, "spacing of rows"},
        BadElement{"ColumnSpacingNegative",
                   "16</gco:Measure>\n          </gmd:resolution>\n        </gmd:MD_Dimension>\n"
                   "      </gmd:axisDimensionProperties>\n      <gmd:cellGeometry>",
                   "-16</gco:Measure>\n          </gmd:resolution>\n        </gmd:MD_Dimension>\n"
                   "      </gmd:axisDimensionProperties>\n      <gmd:cellGeometry>",
                   kBagMetadataNoColumnSpacing, "spacing of columns"},
        BadElement{"CornersEmpty", kCorners, "", kBagMetadataNoCorners, "corner points"},
        BadElement{"CornersHalf", kCorners, "300000.000,4700000.000", kBagMetadataNoCorners,
                   "corner points"},
        BadElement{"CornersTooMany", kCorners, kCorners + " 1,2", kBagMetadataNoCorners,
                   "corner points"},
        BadElement{"CornersSwapped", kCorners, "300320.000,4700160.000 300000.000,4700000.000",
                   kBagMetadataNoCorners, "corner points"},
        BadElement{"CornersNotNumbers", kCorners, "w,s e,n", kBagMetadataNoCorners,
                   "corner points"},
        BadElement{"WestNotANumber", "<gmd:westBoundLongitude>\n                <gco:Decimal>",
                   "<gmd:westBoundLongitude>\n                <gco:Decimal>x",
                   kBagMetadataNoWestBound, "gmd:westBoundLongitude"},
        BadElement{"EastNotANumber", "<gmd:eastBoundLongitude>\n                <gco:Decimal>",
                   "<gmd:eastBoundLongitude>\n                <gco:Decimal>nan",
                   kBagMetadataNoEastBound, "gmd:eastBoundLongitude"},
        BadElement{"SouthNotANumber", "<gmd:southBoundLatitude>\n                <gco:Decimal>",
                   "<gmd:southBoundLatitude>\n                <gco:Decimal>x",
                   kBagMetadataNoSouthBound, "gmd:southBoundLatitude"},
        BadElement{"NorthOutOfRange", "<gmd:northBoundLatitude>\n                <gco:Decimal>",
                   "<gmd:northBoundLatitude>\n                <gco:Decimal>9",
                   kBagMetadataNoNorthBound, "gmd:northBoundLatitude"},
        BadElement{"CountsAndCornersContradict", kColumnCount, "<gco:Integer>23</gco:Integer>",
                   kBagMetadataGridContradiction, "contradict each other"}),
    [](const testing::TestParamInfo<BadElement>& tested) { return tested.param.name; });

TEST_F(Definition, MissingGeographicBoundsAreRefusedEachByItsName) {
  const std::vector<std::pair<std::string, bagStatus>> bounds = {
      {"gmd:westBoundLongitude", kBagMetadataNoWestBound},
      {"gmd:eastBoundLongitude", kBagMetadataNoEastBound},
      {"gmd:southBoundLatitude", kBagMetadataNoSouthBound},
      {"gmd:northBoundLatitude", kBagMetadataNoNorthBound}};
  for (const auto& [name, status] : bounds) {
    std::string text = document(grid_);
    const auto start = text.find("<" + name + ">");
    const std::string end = "</" + name + ">";
    text.erase(start, text.find(end) + end.size() - start);
    EXPECT_EQ(read(text), status);
    EXPECT_NE(textOf(status).find(name), std::string::npos);
  }
}

TEST_F(Definition, SwappedRowsAndColumnsAreRefused) {
  std::string text = replaced(document(grid_), kRowCount, "<gco:Integer>X</gco:Integer>");
  text = replaced(text, kColumnCount, kRowCount);
  text = replaced(text, "<gco:Integer>X</gco:Integer>", kColumnCount);
  EXPECT_EQ(read(text), kBagMetadataGridContradiction);
}

TEST_F(Definition, NorthernTemplateForASouthernGridIsRefused) {
  const TestGrid southern = {.name = "southern", .utm_zone = -56, .south_m = 6250000.0};
  const TestGrid northern = {.name = "northern"};
  EXPECT_EQ(read(filledTemplate(templateOf(northern), southern)), kBagMetadataPlaceContradiction);
  EXPECT_NE(textOf(kBagMetadataPlaceContradiction).find("other hemisphere"), std::string::npos);
  EXPECT_EQ(read(filledTemplate(templateOf(southern), northern)), kBagMetadataPlaceContradiction);
  EXPECT_EQ(read(filledTemplate(templateOf(southern), southern)), kBagSuccess);
}

TEST_F(Definition, OtherZoneIsRefused) {
  EXPECT_EQ(
      read(replaced(document(grid_), "central_meridian&quot;,-69", "central_meridian&quot;,-75")),
      kBagMetadataPlaceContradiction);
}

TEST_F(Definition, BoundsOffByAFewCellsAreRefused) {
  // 2e-5 degrees are 2 m, a part of a cell; a thousandth of a degree is 111 m, seven cells.
  ASSERT_EQ(read(document(grid_)), kBagSuccess);
  const std::string south = "<gmd:southBoundLatitude>\n                <gco:Decimal>";
  const std::string text = document(grid_);
  const auto at = text.find(south) + south.size();
  const double latitude = std::strtod(text.c_str() + at, nullptr);
  const auto with_south = [&](double degrees) {
    return text.substr(0, at) + std::to_string(degrees) + text.substr(text.find('<', at));
  };
  EXPECT_EQ(read(with_south(latitude - 2e-5)), kBagSuccess);
  EXPECT_EQ(read(with_south(latitude - 1e-3)), kBagMetadataPlaceContradiction);
}

TEST_F(Definition, BoundsOfABoxAroundAllCornersAreTaken) {
  // Far from the central meridian the north-west corner lies 0.13 degrees west of the south-west
  // one.
  const TestGrid wide = {.name = "wide",
                         .utm_zone = 33,
                         .rows = 101,
                         .columns = 101,
                         .west_m = 250000.0,
                         .south_m = 7700000.0,
                         .spacing_m = 500.0};
  const std::string text = document(wide);
  ASSERT_EQ(read(text), kBagSuccess);
  const std::string west = "<gmd:westBoundLongitude>\n                <gco:Decimal>";
  const auto at = text.find(west) + west.size();
  const std::string box = text.substr(0, at) + "8.53" + text.substr(text.find('<', at));
  EXPECT_LT(8.53, definition_.west_longitude);
  EXPECT_EQ(read(box), kBagSuccess);
}

TEST_F(Definition, CoordinateSystemThatCannotBeReadIsNoReasonToRefuse) {
  EXPECT_EQ(read(replaced(document(grid_), "PROJCS[", "A system of our own [")), kBagSuccess);
  EXPECT_EQ(std::string(definition_.horizontal_wkt).rfind("A system of our own [", 0), 0U);
}

TEST_F(Definition, MissingCoordinateSystemIsNoReasonToRefuse) {
  std::string text = document(grid_);
  for (int system = 0; system < 2; ++system) {
    const auto first = text.find("<gmd:referenceSystemInfo>");
    const std::string end = "</gmd:referenceSystemInfo>";
    text.erase(first, text.find(end) + end.size() - first);
  }
  EXPECT_EQ(read(text), kBagSuccess);
  EXPECT_STREQ(definition_.horizontal_wkt, "");
}

TEST_F(Definition, NamespacePrefixesAreFree) {
  std::string text = document(grid_);
  for (auto at = text.find("gmd:"); at != std::string::npos; at = text.find("gmd:", at)) {
    text.replace(at, 3, "iso");
  }
  EXPECT_EQ(read(text), kBagSuccess);
  EXPECT_EQ(definition_.columns, 21U);
}

TEST_F(Definition, SingleRowTakesTheSpacingOfColumns) {
  const TestGrid row = {.name = "row", .rows = 1, .columns = 9, .spacing_m = 2.5};
  for (const char* spelling : {"inf", "-nan", "nan"}) {
    const std::string written = document(row).find(">-nan<") != std::string::npos ? "-nan" : "nan";
    ASSERT_EQ(read(replaced(document(row), ">" + written + "<", ">" + std::string(spelling) + "<")),
              kBagSuccess)
        << spelling;
    EXPECT_EQ(definition_.row_spacing, 2.5);
    EXPECT_EQ(definition_.column_spacing, 2.5);
    const std::string stored = definition_.metadata;
    EXPECT_EQ(stored.size(), definition_.metadata_size);
    // The document stays the same but for the spacing, and still has its comment.
    EXPECT_EQ(stored.find(spelling + std::string("</gco:Measure>")), std::string::npos);
    EXPECT_NE(stored.find(">2.5</gco:Measure>"), std::string::npos);
    EXPECT_NE(stored.find("<!-- BAG metadata"), std::string::npos);
    EXPECT_EQ(read(stored), kBagSuccess);
    EXPECT_EQ(definition_.row_spacing, 2.5);
  }
}

TEST_F(Definition, SingleColumnTakesTheSpacingOfRows) {
  const TestGrid column = {.name = "column", .rows = 9, .columns = 1, .spacing_m = 2.5};
  ASSERT_EQ(read(document(column)), kBagSuccess);
  EXPECT_EQ(definition_.row_spacing, 2.5);
  EXPECT_EQ(definition_.column_spacing, 2.5);
}

TEST_F(Definition, LoneNodeHasASpacingOfOne) {
  const TestGrid node = {.name = "node", .rows = 1, .columns = 1};
  ASSERT_EQ(read(document(node)), kBagSuccess);
  EXPECT_EQ(definition_.row_spacing, 1.0);
  EXPECT_EQ(definition_.column_spacing, 1.0);
  EXPECT_EQ(std::string(definition_.metadata).find("nan"), std::string::npos);
}

TEST_F(Definition, NumbersAreReadAlikeInACommaDecimalLocale) {
  const TestGrid fine = {.name = "fine", .spacing_m = 0.5};
  const std::string text = document(fine);
  // NOLINTBEGIN(concurrency-mt-unsafe): the test has one thread.
  const char* const before = std::setlocale(LC_ALL, nullptr);
  const std::string restored = before != nullptr ? before : "C";
  if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) GTEST_SKIP() << "no locale de_DE.UTF-8";
  const bagError status = read(text);
  std::setlocale(LC_ALL, restored.c_str());
  // NOLINTEND(concurrency-mt-unsafe)
  EXPECT_EQ(status, kBagSuccess);
  EXPECT_EQ(definition_.row_spacing, 0.5);
}

class FilledTemplate : public testing::TestWithParam<int> {};

TEST_P(FilledTemplate, IsValidAgainstTheSchemas) {
  const std::filesystem::path schema =
      std::filesystem::path(QUARRO_SOURCE_DIR) / "../shared/data/bag_schema/bag/bag.xsd";
  if (!std::filesystem::exists(schema)) GTEST_SKIP() << "no schemas at " << schema;
  // NOLINTBEGIN(concurrency-mt-unsafe): the test has one thread.
  if (std::system("xmllint --version 2>/dev/null") != 0) GTEST_SKIP() << "xmllint is not installed";
  const TestFolder folder;
  const TestGrid grid = {.name = "a grid", .utm_zone = GetParam(), .south_m = 6250000.0};
  const auto path = folder / "metadata.xml";
  writeText(path, filledTemplate(templateOf(grid), grid));
  const std::string command =
      "xmllint --nonet --noout --schema '" + schema.string() + "' '" + path.string() + "'";
  EXPECT_EQ(std::system(command.c_str()), 0);
  // NOLINTEND(concurrency-mt-unsafe)
}

INSTANTIATE_TEST_SUITE_P(Hemispheres, FilledTemplate, testing::Values(32, -32));

TEST(ExampleTemplates, HoldEachKeyOnce) {
  constexpr std::array kKeys = {
      "UNIQUE_ID",         "RESPONSIBLE_PARTY",   "CURRENT_DATE",   "ROW_COUNT",
      "ROW_SPACING",       "COL_COUNT",           "COL_SPACING",    "CORNER_COORDS",
      "DATASET_TITLE",     "DATASET_DATE",        "ABSTRACT",       "INPUT_RESPONSIBLE_PARTY",
      "WEST_LONGITUDE",    "SOUTH_LATITUDE",      "EAST_LONGITUDE", "NORTH_LATITUDE",
      "PROJECTION_SYSTEM", "PROJECTION_MERIDIAN", "LINEAGE_DESC",   "LINEAGE_DATETIME"};
  for (const char* name : {"bag_metadata_north.xml", "bag_metadata_south.xml"}) {
    const std::string text = readText(std::filesystem::path(QUARRO_SOURCE_DIR) / "examples" / name);
    for (const char* key : kKeys) {
      const std::string whole = std::string("MERA_BAG_") + key;
      const auto first = text.find(whole);
      EXPECT_NE(first, std::string::npos) << name << " lacks " << whole;
      EXPECT_EQ(text.find(whole, first + 1), std::string::npos) << name << " repeats " << whole;
    }
  }
}

}  // namespace
}  // namespace quarro::bag
