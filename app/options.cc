// The command line.
#include "app/options.h"

#include <boost/program_options/parsers.hpp>
#include <boost/program_options/positional_options.hpp>
#include <boost/program_options/value_semantic.hpp>
#include <boost/program_options/variables_map.hpp>

namespace quarro {
namespace {

namespace po = boost::program_options;

std::optional<std::string> TextOf(const po::variables_map& values, const char* name) {
  if (values.count(name) == 0) {
    return std::nullopt;
  }
  return values[name].as<std::string>();
}

}  // namespace

po::options_description DescribeOptions() {
  const std::string debug_level =
      "Set debugging level (default: " + std::to_string(kDefaultDebugLevel) + ", range " +
      std::to_string(kLowestDebugLevel) + "--" + std::to_string(kHighestDebugLevel) +
      ", lower generates more information)";
  const unsigned line_length = po::options_description::m_default_line_length;
  po::options_description options("Options", line_length, line_length / 2);
  // clang-format off
  options.add_options()
      ("help,h", "Generate syntax list")
      ("local", "Use local SuperGrid implementation rather than client-server")
      ("logfile,l", po::value<std::string>(), "Set output log file location")
      ("config-file,f", po::value<std::string>(), "Set configuration file for SuperGrids")
      ("debug-level,d", po::value<int>(), debug_level.c_str())
      ("asynch,a", po::value<std::string>(), "Redirect asynchronous messages to output file")
      ("source,s", po::value<std::string>(), "Source a command file as the first command")
      ("version,v", "Provide versioning information for support libraries and drivers");
  // clang-format on
  return options;
}

Options ParseOptions(int argc, const char* const* argv) {
  const po::options_description description = DescribeOptions();
  po::positional_options_description positional;
  positional.add("config-file", -1);
  po::variables_map values;
  po::store(po::command_line_parser(argc, argv).options(description).positional(positional).run(),
            values);
  po::notify(values);

  Options options;
  options.help = values.count("help") != 0;
  options.version = values.count("version") != 0;
  options.local = values.count("local") != 0;
  options.config_file = TextOf(values, "config-file");
  options.log_file = TextOf(values, "logfile");
  options.message_file = TextOf(values, "asynch");
  options.source_file = TextOf(values, "source");
  if (values.count("debug-level") != 0) {
    options.debug_level = values["debug-level"].as<int>();
  }
  return options;
}

}  // namespace quarro
