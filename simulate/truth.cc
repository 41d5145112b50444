// The true depths of a simulated survey, as text.
#include "simulate/truth.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <limits>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

namespace quarro::simulate {
namespace {

constexpr int kDecimals = 3;

// The decimals that multiples of the spacing need, no more than a position of millions holds.
int DecimalsOf(double spacing_m) {
  constexpr int kMostDecimals = 9;
  std::array<char, 400> text{};
  const auto [end, error] =
      std::to_chars(text.data(), text.data() + text.size(), spacing_m, std::chars_format::fixed);
  const auto* const point = std::find(text.data(), end, '.');
  const auto decimals = point == end ? 0 : static_cast<int>(end - point) - 1;
  return std::clamp(decimals, kDecimals, kMostDecimals);
}

// The indices of the nodes that surround the bounds.
struct Nodes {
  std::int64_t first;
  std::int64_t last;
};
Nodes NodesAround(double lowest_m, double highest_m, double spacing_m) {
  return {static_cast<std::int64_t>(std::floor(lowest_m / spacing_m)),
          static_cast<std::int64_t>(std::ceil(highest_m / spacing_m))};
}

// Takes the number that the text begins with, after blanks, off it; false where there is none, or
// where anything but a blank follows.
bool TakeNumber(std::string_view& text, double& number) {
  constexpr std::string_view kBlanks = " \t\r";
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return text.empty() || kBlanks.find(text.front()) != std::string_view::npos;
}

bool IsSameFile(const std::string& one, const std::string& other) {
  std::error_code none;
  return std::filesystem::equivalent(one, other, none);
}

}  // namespace

TruthText::TruthText(const SurveyOptions& options, const SurveyPlan& plan, const Seafloor& seafloor,
                     TruthRequest request)
    : seafloor_(seafloor),
      request_(std::move(request)),
      extent_(ExtentOfSoundings(options, plan, seafloor)) {
  CheckRequest();
}

void TruthText::CheckRequest() const {
  CheckRange("truth-spacing", request_.spacing_m, 0.01, 100000.0);
  if (!request_.positions.empty() && IsSameFile(request_.positions, request_.path)) {
    throw SimulationError("--truth and --truth-at are both \"" + request_.path +
                          "\": give another --truth, or the positions would be lost");
  }
  if (!request_.overwrite) RefuseToReplace(request_.path, "--truth");
  const double east_m = extent_.east_m - extent_.west_m;
  const double north_m = extent_.north_m - extent_.south_m;
  if (request_.positions.empty() && request_.spacing_m > std::max(east_m, north_m)) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << "--truth-spacing is " << request_.spacing_m << "; the survey of " << std::fixed
         << std::setprecision(1) << east_m << " m by " << north_m
         << " m has no room for a lattice of it: give a smaller one";
    throw SimulationError(text.str());
  }
}

void TruthText::Write() {
  file_.emplace(request_.path);
  errno = 0;
  std::ofstream out(file_->path());
  if (!out) FailToWrite();
  out.imbue(std::locale::classic());
  out.setf(std::ios::fixed);
  if (request_.positions.empty()) {
    WriteLattice(out);
  } else {
    WriteAtPositions(out);
  }
  out.close();
  if (!out) FailToWrite();
}

void TruthText::FailToWrite() const {
  const int error = errno;
  const std::string reason =
      error != 0 ? ": " + std::generic_category().message(error) : std::string();
  throw SimulationError("\"" + request_.path + "\" cannot be written" + reason);
}

void TruthText::Keep() { file_->Keep(); }

void TruthText::WriteAt(std::ostream& out, const survey::GridPoint& at, int decimals) {
  out.precision(decimals);
  out << at.easting_m << ' ' << at.northing_m << ' ';
  out.precision(kDecimals);
  out << seafloor_.DepthAt(at) << '\n';
  ++depths_;
}

void TruthText::WriteLattice(std::ostream& out) {
  const double spacing_m = request_.spacing_m;
  const int decimals = DecimalsOf(spacing_m);
  const Nodes columns = NodesAround(extent_.west_m, extent_.east_m, spacing_m);
  const Nodes rows = NodesAround(extent_.south_m, extent_.north_m, spacing_m);
  for (std::int64_t row = rows.last; row >= rows.first && out; --row) {
    for (std::int64_t column = columns.first; column <= columns.last; ++column) {
      WriteAt(out, {static_cast<double>(column) * spacing_m, static_cast<double>(row) * spacing_m},
              decimals);
    }
  }
}

void TruthText::WriteAtPositions(std::ostream& out) {
  std::ifstream in(request_.positions);
  if (!in || std::filesystem::is_directory(request_.positions)) {
    throw SimulationError("\"" + request_.positions + "\" cannot be read");
  }
  std::string line;
  for (std::uint64_t number = 1; std::getline(in, line); ++number) {
    const std::size_t start = line.find_first_not_of(" \t\r");
    if (start == std::string::npos || line[start] == '#') continue;
    WriteAt(out, PositionOf(line, number), kDecimals);
  }
  if (in.bad()) throw SimulationError("\"" + request_.positions + "\" cannot be read");
}

survey::GridPoint TruthText::PositionOf(const std::string& line, std::uint64_t number) const {
  const std::string place = "\"" + request_.positions + "\" line " + std::to_string(number);
  survey::GridPoint at;
  std::string_view rest = line;
  if (!TakeNumber(rest, at.easting_m) || !TakeNumber(rest, at.northing_m)) {
    throw SimulationError(place +
                          " does not begin with an easting and a northing, parted by blanks");
  }
  // What a zone usually has; a survey over the equator or far off its zone's middle has its own.
  constexpr double kStep_m = 100000.0;
  const double west_m = std::min(kStep_m, std::floor(extent_.west_m / kStep_m) * kStep_m);
  const double east_m = std::max(9 * kStep_m, std::ceil(extent_.east_m / kStep_m) * kStep_m);
  const double south_m = std::min(0.0, std::floor(extent_.south_m / kStep_m) * kStep_m);
  const double north_m = std::max(100 * kStep_m, std::ceil(extent_.north_m / kStep_m) * kStep_m);
  if (at.easting_m >= west_m && at.easting_m <= east_m && at.northing_m >= south_m &&
      at.northing_m <= north_m) {
    return at;
  }
  throw SimulationError(place + " is no position of the survey's UTM zone in metres: the easting" +
                        " must lie between " + std::to_string(std::llround(west_m)) + " and " +
                        std::to_string(std::llround(east_m)) + ", the northing between " +
                        std::to_string(std::llround(south_m)) + " and " +
                        std::to_string(std::llround(north_m)));
}

}  // namespace quarro::simulate
