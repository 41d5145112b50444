// What the interpreter knows of each command: names, counts, conditions, texts and handler.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace quarro {

class CommandProcessor;

// The words of a command line.
using Words = std::vector<std::string>;
using WordIterator = Words::const_iterator;

// Takes the words after the command word and the count of words on the line, the command word
// included. Reports failure by throwing one of CommandProcessor's exceptions.
using CommandHandler =
    std::function<void(WordIterator first, WordIterator last, std::uint32_t word_count)>;

struct CommandInfo {
  std::uint32_t min_params = 0;  // parameters are the words after the command word
  std::uint32_t max_params = 0;
  bool needs_attached = false;  // an engine
  bool needs_grid = false;      // a current grid
  std::string syntax;
  std::string help;                                        // one line
  std::function<void(CommandProcessor&)> DetailHelp = {};  // may be empty
};

// One name of a command. The names of one command share its CommandInfo.
struct CommandEntry {
  CommandHandler handler;
  std::shared_ptr<const CommandInfo> info;
};

// One row of the table: a command under all its names, its handler not yet bound to a processor.
struct CommandRow {
  std::string names;  // parted by commas
  CommandInfo info;
  std::function<void(CommandProcessor&, WordIterator, WordIterator, std::uint32_t)> handler;
};

// The rows of all commands.
std::vector<CommandRow> CommandTable();

}  // namespace quarro
