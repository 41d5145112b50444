// The command line of Quarro_Simulate.
#include "simulate/command_line.h"

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>

#include <boost/program_options.hpp>

#include "simulate/option_values.h"
#include "simulate/survey_writer.h"
#include "simulate/truth.h"

namespace quarro::simulate {
namespace {

namespace po = boost::program_options;

struct Arguments {
  SurveyOptions survey;
  std::string output;
  unsigned threads = 0;
  TruthRequest truth;
  bool overwrite = false;
};

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
  option("canyon-depth", Into(survey.canyon_depth_m), "metres, of the floor of canyon and mix");
  option("canyon-width", Into(survey.canyon_width_m), "metres of the way on which it falls there");
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
  option("overwrite", "replace lines and true depths that are there already");
  option("threads", Into(arguments.threads), "0: one a core; the files are the same for any");
  option("truth", po::value(&arguments.truth.path), "file for true depths: easting northing depth");
  option("truth-spacing", Into(arguments.truth.spacing_m), "metres, of the lattice of true depths");
  option("truth-at", po::value(&arguments.truth.positions),
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

void CheckOutputs(const Arguments& arguments) {
  const TruthRequest& truth = arguments.truth;
  if (arguments.output.empty() && truth.path.empty()) {
    throw SimulationError("nothing to write: give --output or --truth (--help tells more)");
  }
  if (!truth.positions.empty() && truth.path.empty()) {
    throw SimulationError("--truth-at needs --truth, the file to write");
  }
}

// The directory must exist.
void RefuseTruthAsALine(const Arguments& arguments) {
  const std::filesystem::path truth = arguments.truth.path;
  std::error_code none;
  if (!std::filesystem::equivalent(std::filesystem::absolute(truth).parent_path(), arguments.output,
                                   none)) {
    return;
  }
  for (std::uint32_t line = 0; line < arguments.survey.lines; ++line) {
    if (truth.filename() != LineFileName(line)) continue;
    throw SimulationError("--truth is \"" + truth.string() + "\", one of the lines of --output");
  }
}

// As "UTM zone 31 (EPSG:32631)".
std::string ZoneText(int zone) {
  return "UTM zone " + std::to_string(zone) +
         " (EPSG:" + std::to_string(zone > 0 ? 32600 + zone : 32700 - zone) + ")";
}

void TellOfLines(const SurveySummary& written, const Arguments& arguments, std::ostream& out) {
  out << "wrote " << written.lines << " lines of " << written.pings / written.lines << " pings of "
      << arguments.survey.beams << " beams to \"" << arguments.output
      << "\": " << written.counts.beams << " soundings, " << written.counts.flagged << " flagged, "
      << written.counts.spikes << " spikes, " << written.counts.bursts << " on bursts, "
      << ZoneText(written.zone) << "\n";
}

// The true depths are written first but take their name last: what is wrong with them shows before
// the work of the lines begins, and no truth stays of lines that failed.
void Simulate(const Arguments& arguments, std::ostream& out) {
  const SurveyOptions& survey = arguments.survey;
  survey.Check();
  CheckOutputs(arguments);
  const SurveyPlan plan(survey);
  const auto seafloor = MakeSeafloor(survey, plan.origin());
  std::optional<TruthText> truth;
  if (!arguments.truth.path.empty()) truth.emplace(survey, plan, *seafloor, arguments.truth);
  if (!arguments.output.empty()) {
    PrepareDirectory(arguments.output, survey.lines, arguments.overwrite);
    if (truth) RefuseTruthAsALine(arguments);
  }
  if (truth) truth->Write();
  if (!arguments.output.empty()) {
    TellOfLines(WriteLines(survey, plan, *seafloor, arguments.output, arguments.threads), arguments,
                out);
  }
  if (truth) {
    truth->Keep();
    out << "wrote " << truth->depths() << " true depths to \"" << arguments.truth.path << "\", "
        << ZoneText(survey.Zone()) << "\n";
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
    arguments.overwrite = arguments.truth.overwrite = given.count("overwrite") > 0;
    Simulate(arguments, out);
    return 0;
  } catch (const std::exception& failure) {
    err << "Quarro_Simulate: " << failure.what() << "\n";
    return 1;
  }
}

}  // namespace quarro::simulate
