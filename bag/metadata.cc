// Finds the grid in an ISO 19139 document. Elements are known by their local names, since a
// document is free in its namespace prefixes.

#include "bag/metadata.h"

#include <array>
#include <charconv>
#include <cmath>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>

#include <pugixml.hpp>

#include "bag/failure.h"
#include "bag/georeference.h"

namespace quarro::bag {
namespace {

std::string_view localName(std::string_view qualified) {
  return qualified.substr(qualified.find(':') + 1);
}

pugi::xml_node childNamed(const pugi::xml_node& parent, std::string_view name) {
  return parent.find_child(
      [name](const pugi::xml_node& child) { return localName(child.name()) == name; });
}

pugi::xml_node descendantNamed(const pugi::xml_node& parent, std::string_view name) {
  return parent.find_node(
      [name](const pugi::xml_node& node) { return localName(node.name()) == name; });
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// The node that holds an element's text: the element itself, or the typed element inside it.
pugi::xml_node textHolder(const pugi::xml_node& element) {
  const pugi::xml_node inner = element.find_child(
      [](const pugi::xml_node& child) { return child.type() == pugi::node_element; });
  return inner ? inner : element;
}

std::string_view textOf(const pugi::xml_node& element) {
  return trimmed(textHolder(element).text().get());
}

// The whole text as a number, whatever the locale.
template <typename Number>
std::optional<Number> parsed(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::string readFile(const char* path) {
  const std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  // Fails also where there is nothing to read, and on a folder.
  if (!(text << file.rdbuf())) fail(kBagMetadataUnreadable);
  return text.str();
}

// One of the grid's two axes as the document describes it.
struct Axis {
  std::uint32_t nodes = 0;
  // NaN where an axis of a single node gives none.
  double spacing = 0;
  pugi::xml_node spacing_holder;
};

// The axis of that name, else the one in that position.
pugi::xml_node axisElement(const pugi::xml_node& grid, std::string_view name, int position) {
  pugi::xml_node at_position;
  int count = 0;
  for (const pugi::xml_node& property : grid.children()) {
    if (localName(property.name()) != "axisDimensionProperties") continue;
    const pugi::xml_node code = textHolder(descendantNamed(property, "dimensionName"));
    if (code.attribute("codeListValue").value() == name || trimmed(code.text().get()) == name) {
      return property;
    }
    if (count++ == position) at_position = property;
  }
  return at_position;
}

Axis readAxis(const pugi::xml_node& element, bagStatus bad_count, bagStatus bad_spacing) {
  Axis axis;
  const auto nodes = parsed<std::uint32_t>(textOf(descendantNamed(element, "dimensionSize")));
  if (!nodes || *nodes == 0) fail(bad_count);
  axis.nodes = *nodes;
  axis.spacing_holder = textHolder(descendantNamed(element, "resolution"));
  const std::string_view spacing_text = trimmed(axis.spacing_holder.text().get());
  const auto spacing = parsed<double>(spacing_text);
  const bool usable = spacing && std::isfinite(*spacing) && *spacing > 0;
  // The distance of a single node from its neighbour is a division by zero, infinity or not a
  // number in whatever spelling.
  if (!usable && (axis.nodes > 1 || spacing_text.empty())) fail(bad_spacing);
  axis.spacing = usable ? *spacing : std::nan("");
  return axis;
}

// An axis of a single node takes the other one's spacing: readers need a number for the size of
// a pixel, and cells are square in nearly all grids. A lone node gets 1.
double spacingOf(const Axis& axis, const Axis& other) {
  if (!std::isnan(axis.spacing)) return axis.spacing;
  return std::isnan(other.spacing) ? 1.0 : other.spacing;
}

// "west,south east,north", with the separators that the element names.
void readCorners(const pugi::xml_node& grid, GridPlace& place) {
  const pugi::xml_node coordinates =
      descendantNamed(childNamed(grid, "cornerPoints"), "coordinates");
  std::string separators = " \t\r\n";
  separators += coordinates.attribute("cs").as_string(",");
  separators += coordinates.attribute("ts").as_string(" ");
  std::string_view rest = coordinates.text().get();
  std::array<double, 4> numbers{};
  for (double& number : numbers) {
    const auto first = rest.find_first_not_of(separators);
    if (first == std::string_view::npos) fail(kBagMetadataNoCorners);
    rest.remove_prefix(first);
    const std::string_view word = rest.substr(0, rest.find_first_of(separators));
    const auto value = parsed<double>(word);
    if (!value || !std::isfinite(*value)) fail(kBagMetadataNoCorners);
    number = *value;
    rest.remove_prefix(word.size());
  }
  if (rest.find_first_not_of(separators) != std::string_view::npos) fail(kBagMetadataNoCorners);
  place.west = numbers[0];
  place.south = numbers[1];
  place.east = numbers[2];
  place.north = numbers[3];
  if (place.west > place.east || place.south > place.north) fail(kBagMetadataNoCorners);
}

double readBound(const pugi::xml_node& root, std::string_view name, double limit,
                 bagStatus bad_bound) {
  const auto bound = parsed<double>(textOf(descendantNamed(root, name)));
  if (!bound || !(std::abs(*bound) <= limit)) fail(bad_bound);
  return *bound;
}

// The horizontal system stands first, unless a document puts the vertical one there.
std::string readHorizontalWkt(const pugi::xml_node& root) {
  for (const pugi::xml_node& system : root.children()) {
    if (localName(system.name()) != "referenceSystemInfo") continue;
    const std::string_view wkt = textOf(descendantNamed(system, "code"));
    const bool vertical = wkt.rfind("VERT", 0) == 0;
    if (!wkt.empty() && !vertical) return std::string(wkt);
  }
  return {};
}

// Whether so many nodes so far apart reach from one corner to the other. Swapped rows and columns
// do not; rounding to few digits does.
bool axisFits(std::uint32_t nodes, double spacing, double length) {
  if (nodes == 1) return true;
  return std::abs((nodes - 1.0) * spacing - length) <= 0.5 * spacing;
}

std::string shortestText(double value) {
  std::array<char, 32> text{};
  const auto result = std::to_chars(text.data(), text.data() + text.size(), value);
  return {text.data(), result.ptr};
}

std::string serialised(const pugi::xml_document& document) {
  std::ostringstream text;
  document.save(text, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);
  return text.str();
}

}  // namespace

Metadata readMetadata(const char* path) {
  Metadata metadata{.text = readFile(path), .grid = {}};
  pugi::xml_document document;
  // Keeps what the document holds besides elements, in case it is written again.
  constexpr unsigned kKeepAll = pugi::parse_full | pugi::parse_ws_pcdata;
  if (!document.load_buffer(metadata.text.data(), metadata.text.size(), kKeepAll)) {
    fail(kBagMetadataNotXml);
  }
  const pugi::xml_node root = document.document_element();
  if (localName(root.name()) != "MI_Metadata") fail(kBagMetadataNoRoot);
  const pugi::xml_node grid =
      childNamed(childNamed(root, "spatialRepresentationInfo"), "MD_Georectified");
  if (!grid) fail(kBagMetadataNoGrid);

  const Axis rows =
      readAxis(axisElement(grid, "row", 0), kBagMetadataNoRowCount, kBagMetadataNoRowSpacing);
  const Axis columns = readAxis(axisElement(grid, "column", 1), kBagMetadataNoColumnCount,
                                kBagMetadataNoColumnSpacing);
  GridPlace& place = metadata.grid;
  place.rows = rows.nodes;
  place.columns = columns.nodes;
  place.row_spacing = spacingOf(rows, columns);
  place.column_spacing = spacingOf(columns, rows);
  readCorners(grid, place);
  place.west_longitude = readBound(root, "westBoundLongitude", 360.0, kBagMetadataNoWestBound);
  place.east_longitude = readBound(root, "eastBoundLongitude", 360.0, kBagMetadataNoEastBound);
  place.south_latitude = readBound(root, "southBoundLatitude", 90.0, kBagMetadataNoSouthBound);
  place.north_latitude = readBound(root, "northBoundLatitude", 90.0, kBagMetadataNoNorthBound);
  place.horizontal_wkt = readHorizontalWkt(root);

  if (!axisFits(place.rows, place.row_spacing, place.north - place.south) ||
      !axisFits(place.columns, place.column_spacing, place.east - place.west)) {
    fail(kBagMetadataGridContradiction);
  }
  if (!boundsFitCorners(place)) fail(kBagMetadataPlaceContradiction);

  if (std::isnan(rows.spacing) || std::isnan(columns.spacing)) {
    // The document in the file gives the spacing that is used, as a number.
    rows.spacing_holder.text().set(shortestText(place.row_spacing).c_str());
    columns.spacing_holder.text().set(shortestText(place.column_spacing).c_str());
    metadata.text = serialised(document);
  }
  return metadata;
}

}  // namespace quarro::bag
