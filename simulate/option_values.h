// The values of options on the command line: their forms, and where they go.
#pragma once

#include <concepts>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <boost/any.hpp>
#include <boost/program_options.hpp>

namespace quarro::simulate {

// A whole number, all of its text and without a sign.
template <std::unsigned_integral Number>
struct Whole {
  Number value;
};

// The whole number from 0 to `highest` that is all of `text`. Throws an error of Boost's, to which
// Boost adds the option's name.
std::uint64_t ParseWhole(const std::string& text, std::uint64_t highest);

// "1,3-5" gives 1, 3, 4 and 5. Throws SimulationError for anything else.
std::vector<std::uint32_t> LineNumbers(const std::string& list);

// How Boost reads a Whole.
template <typename Number>
void validate(boost::any& value, const std::vector<std::string>& texts, Whole<Number>* /*type*/,
              int /*rank*/) {
  namespace po = boost::program_options;
  po::validators::check_first_occurrence(value);
  const std::uint64_t number =
      ParseWhole(po::validators::get_single_string(texts), std::numeric_limits<Number>::max());
  value = Whole<Number>{static_cast<Number>(number)};
}

// The value of an option that goes to `value` and has what is there as its default. Owned by the
// option that takes it.
template <std::unsigned_integral Number>
boost::program_options::typed_value<Whole<Number>>* Into(Number& value) {
  return boost::program_options::value<Whole<Number>>()
      ->default_value({value}, std::to_string(value))
      ->notifier([&value](const Whole<Number>& given) { value = given.value; });
}
// A default shows with few digits: 0.004 and not 0.0040000000000000001.
boost::program_options::typed_value<double>* Into(double& value);
boost::program_options::typed_value<std::string>* Into(std::string& value);
// A list of lines, none where it is not given.
boost::program_options::typed_value<std::string>* Into(std::vector<std::uint32_t>& lines);

}  // namespace quarro::simulate
