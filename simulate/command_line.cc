// The command line of Quarro_Simulate.
#include "simulate/command_line.h"

#include <algorithm>
#include <charconv>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <boost/program_options.hpp>

#include "simulate/survey_writer.h"
#include "simulate/truth.h"

namespace quarro::simulate {
namespace {

namespace po = boost::program_options;

struct Arguments {
  SurveyOptions survey;
  std::string output;
  unsigned threads = 0;
  std::string truth;
  double truth_spacing_m = 10.0;
  std::string truth_at;
};

template <typename Value>
po::typed_value<Value>* Into(Value& value) {
  return po::value<Value>(&value)->default_value(value);
}

// An option whose default shows with few digits: 0.004 and not 0.0040000000000000001.
po::typed_value<double>* Into(double& value) {
  std::string text = std::to_string(value);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return po::value<double>(&value)->default_value(value, text);
}

// A number of a list of lines, all of its text.
std::uint32_t LineNumber(std::string_view text, const std::string& list) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number > 9999) {
    throw SimulationError("\"" + list + "\" is no list of lines: give numbers from 1, as 1,3-5");
  }
  return number;
}

// "1,3-5" gives 1, 3, 4 and 5.
std::vector<std::uint32_t> LineNumbers(const std::string& list) {
  std::vector<std::uint32_t> numbers;
  for (std::size_t start = 0; start <= list.size();) {
    const std::size_t comma = std::min(list.find(',', start), list.size());
    const auto part = std::string_view(list).substr(start, comma - start);
    const std::size_t dash = std::min(part.find('-'), part.size());
    const std::uint32_t first = LineNumber(part.substr(0, dash), list);
    const std::uint32_t last = dash < part.size() ? LineNumber(part.substr(dash + 1), list) : first;
    for (std::uint32_t number = first; number <= last; ++number) numbers.push_back(number);
    start = comma + 1;
  }
  return numbers;
}

po::typed_value<std::string>* Into(std::vector<std::uint32_t>& lines) {
  return po::value<std::string>()->notifier(
      [&lines](const std::string& list) { lines = LineNumbers(list); });
}

po::options_description SeafloorOptions(SurveyOptions& survey) {
  po::options_description group("Seafloor");
  auto option = group.add_options();
  option("seafloor", Into(survey.seafloor),
         "flat, slope, waves, rocks (with the wreck), scarp, canyon or mix");
  option("depth", Into(survey.depth_m), "metres at the origin");
  option("slope", Into(survey.slope), "metres of depth a metre of way, of slope and mix");
  option("slope-azimuth", Into(survey.slope_azimuth_deg),
         "degrees from grid north of the way that deepens, of slope, scarp and canyon");
  option("wave-amplitude", Into(survey.wave_amplitude_m), "metres from the mean to a crest");
  option("wave-length", Into(survey.wave_length_m), "metres from crest to crest");
  option("wave-azimuth", Into(survey.wave_azimuth_deg), "degrees from grid north, across crests");
  option("rocks", Into(survey.rock_count), "boulders, scattered by the seed");
  option("rock-height", Into(survey.rock_height_m), "metres");
  option("rock-width", Into(survey.rock_width_m), "metres");
  option("wreck-height", Into(survey.wreck_height_m), "metres; 0 leaves the wreck out");
  option("wreck-width", Into(survey.wreck_width_m), "metres");
  option("wreck-length", Into(survey.wreck_length_m), "metres");
  option("wreck-east", Into(survey.wreck_east_m), "metres from the origin to its middle");
  option("wreck-north", Into(survey.wreck_north_m), "metres from the origin to its middle");
  option("wreck-azimuth", Into(survey.wreck_azimuth_deg), "degrees from grid north, of its length");
  option("scarp-height", Into(survey.scarp_height_m), "metres, of scarp and mix");
  option("scarp-width", Into(survey.scarp_width_m), "metres of the way on which it falls");
  option("canyon-depth", Into(survey.canyon_depth_m), "metres, of the canyon's floor");
  option("canyon-width", Into(survey.canyon_width_m), "metres of the way on which it falls");
  return group;
}

po::options_description LineOptions(SurveyOptions& survey) {
  po::options_description group("Lines");
  auto option = group.add_options();
  option("lines", Into(survey.lines), "parallel lines, sailed to and fro");
  option("line-length", Into(survey.line_length_m), "metres");
  option("line-spacing", Into(survey.line_spacing_m), "metres; 0 takes it from the overlap");
  option("overlap", Into(survey.overlap), "of neighbouring swaths, a part of one");
  option("latitude", Into(survey.latitude_deg), "degrees, of the middle of the survey");
  option("longitude", Into(survey.longitude_deg), "degrees, of the middle of the survey");
  option("heading", Into(survey.heading_deg), "degrees from true north, of the first line");
  return group;
}

po::options_description SonarOptions(SurveyOptions& survey) {
  po::options_description group("Ship and echosounder");
  auto option = group.add_options();
  option("beams", Into(survey.beams), "beams a ping");
  option("swath", Into(survey.swath_deg), "degrees between the outermost beams");
  option("ping-rate", Into(survey.ping_rate_hz), "pings a second");
  option("speed", Into(survey.speed_m_s), "metres a second");
  return group;
}

po::options_description ErrorOptions(SurveyOptions& survey) {
  survey::UncertaintyModel& model = survey.uncertainty;
  po::options_description group("Errors");
  auto option = group.add_options();
  option("noise", Into(survey.noise), "multiplies the errors made, not those told in the files");
  option("spikes", Into(survey.spikes), "part of the beams grossly wrong and not flagged");
  option("flagged", Into(survey.flagged), "part of the beams grossly wrong and flagged");
  option("vertical-fixed", Into(model.vertical_fixed_m), "metres, 1 sigma");
  option("vertical-proportional", Into(model.vertical_proportional), "of depth, 1 sigma");
  option("horizontal-fixed", Into(model.horizontal_fixed_m), "metres, 1 sigma along an axis");
  option("horizontal-proportional", Into(model.horizontal_proportional), "of depth, 1 sigma");
  option("angle-growth", Into(model.angle_growth), "errors grow by 1 + this tan^2(angle)");
  option("bursts", Into(survey.bursts), "schools of fish a line, taken for the floor");
  option("burst-pings", Into(survey.burst_pings), "pings a burst");
  option("burst-beams", Into(survey.burst_beams), "beams of each of its pings");
  option("burst-depth", Into(survey.burst_depth_fraction), "its depth, a part of the floor's");
  option("burst-swath", Into(survey.burst_swath_fraction),
         "middle part of the swath for bursts: 0 under the keel, 1 anywhere");
  option("smile-lines", Into(survey.smile_lines), "lines with refraction, as 1,3-5");
  option("smile", Into(survey.smile_fraction),
         "of depth, by which their outermost beams are too shallow; grows as tan^2(angle)");
  option("offset-lines", Into(survey.offset_lines), "lines with an offset, as 1,3-5");
  option("offset", Into(survey.offset_m), "metres by which their depths are too deep");
  option("gaps", Into(survey.gaps), "gaps a line");
  option("gap-pings", Into(survey.gap_pings), "pings missing in a gap");
  option("seed", Into(survey.seed), "of the random numbers, and of the rocks' places");
  return group;
}

po::options_description OutputOptions(Arguments& arguments) {
  po::options_description group("Output");
  auto option = group.add_options();
  option("output", po::value(&arguments.output), "directory of the lines, made where missing");
  option("overwrite", "replace lines that are there already");
  option("threads", Into(arguments.threads), "0: one a core; the files are the same for any");
  option("truth", po::value(&arguments.truth), "file for true depths: easting northing depth");
  option("truth-spacing", Into(arguments.truth_spacing_m), "metres, of the lattice of true depths");
  option("truth-at", po::value(&arguments.truth_at),
         "file of the positions for the true depths, instead of a lattice");
  option("help", "this text");
  return group;
}

po::options_description Describe(Arguments& arguments) {
  po::options_description all(
      "Quarro_Simulate --output DIRECTORY [options]\n"
      "Writes a simulated multibeam survey as GSF lines");
  all.add(SeafloorOptions(arguments.survey))
      .add(LineOptions(arguments.survey))
      .add(SonarOptions(arguments.survey))
      .add(ErrorOptions(arguments.survey))
      .add(OutputOptions(arguments));
  return all;
}

void CheckUncertainty(const survey::UncertaintyModel& model) {
  for (const double value :
       {model.vertical_fixed_m, model.vertical_proportional, model.horizontal_fixed_m,
        model.horizontal_proportional, model.angle_growth}) {
    if (!(value >= 0.0 && value <= 1000.0)) {
      throw SimulationError("the errors' constants must lie between 0 and 1000");
    }
  }
}

void Simulate(const Arguments& arguments, bool overwrite, std::ostream& out) {
  CheckUncertainty(arguments.survey.uncertainty);
  arguments.survey.Check();
  if (arguments.output.empty() && arguments.truth.empty()) {
    throw SimulationError("nothing to write: give --output or --truth (--help tells more)");
  }
  if (!arguments.truth_at.empty() && arguments.truth.empty()) {
    throw SimulationError("--truth-at needs --truth, the file to write");
  }
  if (!arguments.output.empty()) {
    const SurveySummary written =
        WriteSurvey(arguments.survey, arguments.output, arguments.threads, overwrite);
    out << "wrote " << written.lines << " lines of " << written.pings / written.lines
        << " pings of " << arguments.survey.beams << " beams to \"" << arguments.output
        << "\": " << written.counts.beams << " soundings, " << written.counts.flagged
        << " flagged, " << written.counts.spikes << " spikes, " << written.counts.bursts
        << " on bursts, UTM zone " << written.zone << "\n";
  }
  if (!arguments.truth.empty()) {
    const std::uint64_t depths =
        arguments.truth_at.empty()
            ? WriteTruthOfLattice(arguments.survey, arguments.truth_spacing_m, arguments.truth)
            : WriteTruthAt(arguments.survey, arguments.truth_at, arguments.truth);
    out << "wrote " << depths << " true depths to \"" << arguments.truth << "\"\n";
  }
}

}  // namespace

int Run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
  try {
    Arguments arguments;
    const po::options_description all = Describe(arguments);
    po::variables_map given;
    po::store(
        po::command_line_parser(argc, argv)
            .options(all)
            .positional(po::positional_options_description())
            .style(po::command_line_style::unix_style & ~po::command_line_style::allow_guessing)
            .run(),
        given);
    po::notify(given);
    if (given.count("help") > 0) {
      out << all;
      return 0;
    }
    Simulate(arguments, given.count("overwrite") > 0, out);
    return 0;
  } catch (const std::exception& failure) {
    err << "Quarro_Simulate: " << failure.what() << "\n";
    return 1;
  }
}

}  // namespace quarro::simulate
