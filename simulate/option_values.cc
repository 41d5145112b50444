// The values of options on the command line: their forms, and where they go.
#include "simulate/option_values.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "simulate/survey_options.h"

namespace quarro::simulate {
namespace {

namespace po = boost::program_options;

// A whole number, all of its text; false for anything else.
template <typename Number>
bool IsWhole(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

// A number of a list of lines.
std::uint32_t LineNumber(std::string_view text, const std::string& list) {
  std::uint32_t number = 0;
  if (!IsWhole(text, number) || number > 9999) {
    throw SimulationError("\"" + list + "\" is no list of lines: give numbers from 1, as 1,3-5");
  }
  return number;
}

}  // namespace

std::uint64_t ParseWhole(const std::string& text, std::uint64_t highest) {
  std::uint64_t number = 0;
  const bool whole = IsWhole(text, number);
  if (whole && number <= highest) return number;
  throw po::error_with_option_name(
      "%canonical_option% is " + text + "; it must be " +
      (whole ? std::to_string(highest) + " at most" : "a whole number without a sign"));
}

std::vector<std::uint32_t> LineNumbers(const std::string& list) {
  std::vector<std::uint32_t> numbers;
  for (std::size_t start = 0; start <= list.size();) {
    const std::size_t comma = std::min(list.find(',', start), list.size());
    const auto part = std::string_view(list).substr(start, comma - start);
    const std::size_t dash = std::min(part.find('-'), part.size());
    const std::uint32_t first = LineNumber(part.substr(0, dash), list);
    const std::uint32_t last = dash < part.size() ? LineNumber(part.substr(dash + 1), list) : first;
    if (last < first) {
      throw SimulationError("\"" + list + "\" is no list of lines: the range " + std::string(part) +
                            " descends; give " + std::to_string(last) + "-" +
                            std::to_string(first));
    }
    for (std::uint32_t number = first; number <= last; ++number) numbers.push_back(number);
    start = comma + 1;
  }
  return numbers;
}

po::typed_value<double>* Into(double& value) {
  std::string text = std::to_string(value);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return po::value<double>(&value)->default_value(value, text);
}

po::typed_value<std::string>* Into(std::string& value) {
  return po::value<std::string>(&value)->default_value(value);
}

po::typed_value<std::string>* Into(std::vector<std::uint32_t>& lines) {
  return po::value<std::string>()->notifier(
      [&lines](const std::string& list) { lines = LineNumbers(list); });
}

}  // namespace quarro::simulate
