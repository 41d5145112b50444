// The command line.
#pragma once

#include <optional>
#include <string>

#include <boost/program_options/options_description.hpp>

namespace quarro {

inline constexpr int kDefaultDebugLevel = 4;
inline constexpr int kLowestDebugLevel = 0;
inline constexpr int kHighestDebugLevel = 7;

struct Options {
  bool help = false;
  bool version = false;
  bool local = false;
  std::optional<std::string> config_file;
  std::optional<std::string> log_file;
  std::optional<std::string> message_file;  // of asynchronous messages
  std::optional<std::string> source_file;
  int debug_level = kDefaultDebugLevel;
};

// The options with their texts, in the order in which the usage shows them.
boost::program_options::options_description DescribeOptions();

// Throws the option library's exceptions for unknown options and values that do not convert.
Options ParseOptions(int argc, const char* const* argv);

}  // namespace quarro
