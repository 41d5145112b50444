// Strict conversion of command words to numbers.
#pragma once

#include <string>

#include <boost/lexical_cast/try_lexical_convert.hpp>

namespace quarro {

// Converts the whole word, without blanks around it. For unsigned types a leading minus negates
// modulo the type's range. False, with `number` unspecified, for a word that does not convert.
template <typename Number>
bool ConvertWord(const std::string& word, Number& number) {
  return boost::conversion::try_lexical_convert(word, number);
}

}  // namespace quarro
