// The true depths of a simulated survey, as text.
#include "simulate/truth.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <sstream>

#include "simulate/seafloor.h"
#include "simulate/survey_plan.h"

namespace quarro::simulate {
namespace {

class TruthFile {
 public:
  TruthFile(const std::string& path, const Seafloor& seafloor)
      : path_(path), seafloor_(seafloor), file_(path) {
    file_.imbue(std::locale::classic());
    file_.setf(std::ios::fixed);
    file_.precision(3);
    if (!file_) throw SimulationError("cannot open \"" + path + "\" for writing");
  }

  void Write(const survey::GridPoint& at) {
    file_ << at.easting_m << ' ' << at.northing_m << ' ' << seafloor_.DepthAt(at) << '\n';
    ++lines_;
  }

  std::uint64_t Close() {
    file_.close();
    if (!file_) throw SimulationError("cannot write \"" + path_ + "\"");
    return lines_;
  }

 private:
  std::string path_;
  const Seafloor& seafloor_;
  std::ofstream file_;
  std::uint64_t lines_ = 0;
};

}  // namespace

std::uint64_t WriteTruthOfLattice(const SurveyOptions& options, double spacing_m,
                                  const std::string& path) {
  if (!(spacing_m >= 0.01)) throw SimulationError("--truth-spacing must be 0.01 m or more");
  const SurveyPlan plan(options);
  const auto seafloor = MakeSeafloor(options, plan.origin());
  const double along_m = options.line_length_m / 2.0;
  const double across_m = options.lines * options.Spacing_m() / 2.0;
  const std::array corners{plan.At(-along_m, -across_m), plan.At(-along_m, across_m),
                           plan.At(along_m, -across_m), plan.At(along_m, across_m)};
  const auto [west, east] =
      std::minmax_element(corners.begin(), corners.end(),
                          [](const auto& a, const auto& b) { return a.easting_m < b.easting_m; });
  const auto [south, north] =
      std::minmax_element(corners.begin(), corners.end(),
                          [](const auto& a, const auto& b) { return a.northing_m < b.northing_m; });
  const auto first_node = [&](double bound) {
    return static_cast<std::int64_t>(std::ceil(bound / spacing_m));
  };
  TruthFile file(path, *seafloor);
  for (std::int64_t row = first_node(south->northing_m); row * spacing_m <= north->northing_m;
       ++row) {
    for (std::int64_t column = first_node(west->easting_m); column * spacing_m <= east->easting_m;
         ++column) {
      file.Write({column * spacing_m, row * spacing_m});
    }
  }
  return file.Close();
}

std::uint64_t WriteTruthAt(const SurveyOptions& options, const std::string& positions,
                           const std::string& path) {
  const SurveyPlan plan(options);
  const auto seafloor = MakeSeafloor(options, plan.origin());
  std::ifstream in(positions);
  if (!in) throw SimulationError("cannot open \"" + positions + "\" for reading");
  TruthFile file(path, *seafloor);
  std::string line;
  for (std::uint64_t number = 1; std::getline(in, line); ++number) {
    const std::size_t start = line.find_first_not_of(" \t\r");
    if (start == std::string::npos || line[start] == '#') continue;
    std::istringstream fields(line);
    fields.imbue(std::locale::classic());
    survey::GridPoint at;
    if (!(fields >> at.easting_m >> at.northing_m)) {
      throw SimulationError("\"" + positions + "\" line " + std::to_string(number) +
                            " does not begin with an easting and a northing");
    }
    file.Write(at);
  }
  return file.Close();
}

}  // namespace quarro::simulate
