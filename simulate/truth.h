// The true depths of a simulated survey, as text.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

#include "simulate/part_file.h"
#include "simulate/seafloor.h"
#include "simulate/survey_extent.h"
#include "simulate/survey_plan.h"

namespace quarro::simulate {

// Which true depths are wanted, and where.
struct TruthRequest {
  std::string path;
  double spacing_m = 10.0;
  // A text file whose lines begin with the positions wanted (what follows the first two numbers is
  // passed over; blank lines and lines that begin with '#' are skipped). Empty: a lattice.
  std::string positions;
  bool overwrite = false;
};

// A text of lines "easting northing depth": metres of the survey's UTM zone, depth positive down.
//
// The lattice is that of a grid of the spacing: its nodes lie at multiples of it. It surrounds all
// soundings, its rows run from north to south and its positions have as many decimals as the
// spacing, three at least, so that programs that read rasters find equal steps. Everything throws
// SimulationError. The plan and the seafloor must outlive it. One thread at a time.
class TruthText {
 public:
  // Checks what can be known before anything is written.
  TruthText(const SurveyOptions& options, const SurveyPlan& plan, const Seafloor& seafloor,
            TruthRequest request);

  // Writes all lines, not yet under the file's name.
  void Write();
  // Gives the file its name, after Write.
  void Keep();
  // The lines written.
  std::uint64_t depths() const { return depths_; }

 private:
  void CheckRequest() const;
  [[noreturn]] void FailToWrite() const;
  void WriteLattice(std::ostream& out);
  void WriteAtPositions(std::ostream& out);
  survey::GridPoint PositionOf(const std::string& line, std::uint64_t number) const;
  void WriteAt(std::ostream& out, const survey::GridPoint& at, int decimals);

  const Seafloor& seafloor_;
  TruthRequest request_;
  Extent extent_;
  std::optional<PartFile> file_;
  std::uint64_t depths_ = 0;
};

}  // namespace quarro::simulate
