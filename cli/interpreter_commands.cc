// The commands that manage the interpreter itself: help, history, source and exit.
#include <fstream>
#include <iostream>
#include <set>
#include <string>

#include "cli/command_handlers.h"
#include "cli/command_processor.h"
#include "cli/stack_room.h"
#include "cli/text_file.h"
#include "slog/slog.h"

namespace quarro {
namespace {

void ShowSyntax(Slog& log, const CommandInfo& info) {
  log << SlogLevel(1);
  log() << "\t" << info.syntax << endmsg;
  log << SlogLevel(1);
  log() << "\t\t" << info.help << endmsg;
}

void ListCommands(Slog& log, const CommandProcessor::CommandMap& commands) {
  log << SlogLevel(1);
  log() << "Available commands:" << endmsg;
  std::set<std::string> shown;
  for (const auto& [name, entry] : commands) {
    const bool has_aliases = entry.info.use_count() > 1;
    if (!has_aliases || shown.insert(entry.info->syntax).second) {
      ShowSyntax(log, *entry.info);
    }
  }
}

// Runs the lines of an open command file, each echoed with its number.
void RunLines(CommandProcessor& processor, std::istream& file, const std::string& path) {
  CommandState& state = processor.State();
  Slog log(&state.log);
  unsigned counter = 0;
  for (std::string line; std::getline(file, line);) {
    if (line.empty()) {
      continue;
    }
    log << SlogLevel(1);
    log() << "[C" << ++counter << "] " << line << endmsg;
    processor.Dispatch(line);
    state.messages.FlushMessages();
  }
  if (file.bad()) {
    log << SlogLevel(4);
    log() << "reading \"" << path << "\" failed after line " << counter
          << "; the rest of it was not run." << endmsg;
    throw CommandProcessor::cmd_failed();
  }
}

}  // namespace

void HelpCommand(CommandProcessor& processor, WordIterator first, WordIterator /*last*/,
                 std::uint32_t word_count) {
  Slog log(&processor.State().log);
  const auto& commands = processor.Commands();
  if (word_count != 2) {
    ListCommands(log, commands);
    return;
  }
  const auto command = commands.find(*first);
  if (command == commands.end()) {
    // The message ends in the address of the end-of-message function, which scripts have come to
    // expect there.
    std::cout << "error: command \"" << *first << "\" is not recognised."
              << reinterpret_cast<const void*>(&endmsg);
    throw CommandProcessor::bad_command();
  }
  const CommandInfo& info = *command->second.info;
  ShowSyntax(log, info);
  if (info.DetailHelp) {
    info.DetailHelp(processor);
  }
}

void HistoryCommand(CommandProcessor& processor, WordIterator /*first*/, WordIterator /*last*/,
                    std::uint32_t /*word_count*/) {
  CommandState& state = processor.State();
  Slog log(&state.log);
  log << SlogLevel(1);
  log() << "command history:" << endmsg;
  unsigned number = 0;
  for (const std::string& line : state.history) {
    log << SlogLevel(1);
    log() << " [" << ++number << "] " << line << endmsg;
  }
}

void SourceCommand(CommandProcessor& processor, WordIterator first, WordIterator /*last*/,
                   std::uint32_t /*word_count*/) {
  CommandState& state = processor.State();
  const std::string& path = *first;
  if (StackIsNearlyFull()) {
    Slog log(&state.log);
    log << SlogLevel(4);
    log() << "command files are nested too deeply to source \"" << path
          << "\"; does one source itself?" << endmsg;
    throw CommandProcessor::cmd_failed();
  }
  std::ifstream file;
  if (!OpenTextFile(path, file)) {
    Slog log(&state.log);
    log << SlogLevel(4);
    log() << "could not open \"" << path << "\" for input." << endmsg;
    throw CommandProcessor::bad_command();
  }
  state.sourcing = true;
  try {
    RunLines(processor, file, path);
  } catch (...) {
    state.sourcing = false;
    throw;
  }
  state.sourcing = false;
}

void ExitCommand(CommandProcessor& /*processor*/, WordIterator /*first*/, WordIterator /*last*/,
                 std::uint32_t /*word_count*/) {
  throw CommandProcessor::cli_done();
}

}  // namespace quarro
