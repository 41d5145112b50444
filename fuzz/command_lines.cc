// Command lines out of an input, and which of them the interpreter may end the program on.
#include "fuzz/command_lines.h"

#include <algorithm>
#include <sstream>

#include <boost/lexical_cast.hpp>

namespace quarro::fuzz {
namespace {

Words WordsOf(const std::string& line) {
  Words words;
  std::istringstream rest(line);
  for (std::string word; std::getline(rest, word, ' ');) {
    if (!word.empty()) words.push_back(word);
  }
  return words;
}

bool ReadsNumbersUnguarded(const std::string& line) {
  const Words words = WordsOf(line);
  if (words.empty()) return false;
  return words[0] == "debug" || (words.size() > 1 && words[0] == "set" && words[1] == "history");
}

bool IsLeftOut(const std::string& line) {
  const Words words = WordsOf(line);
  return !words.empty() && (words[0] == "source" || words[0] == "stress_test");
}

}  // namespace

std::vector<std::string> CommandLines(std::string_view text, std::size_t most) {
  std::vector<std::string> lines;
  while (!text.empty() && lines.size() < most) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string line(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    std::replace(line.begin(), line.end(), '/', '_');
    if (!IsLeftOut(line)) lines.push_back(std::move(line));
  }
  return lines;
}

End Run(CommandProcessor& processor, const std::string& line) {
  try {
    processor.Dispatch(line);
  } catch (const CommandProcessor::cli_done&) {
    return End::kExit;
  } catch (const CommandProcessor::bad_command&) {
    return End::kGoesOn;
  } catch (const CommandProcessor::cmd_failed&) {
    return End::kGoesOn;
  } catch (const CommandProcessor::not_attached&) {
    return End::kGoesOn;
  } catch (const CommandProcessor::no_grid&) {
    return End::kGoesOn;
  } catch (const boost::bad_lexical_cast&) {
    if (!ReadsNumbersUnguarded(line)) throw;
    return End::kEndsByRule;
  }
  return End::kGoesOn;
}

}  // namespace quarro::fuzz
