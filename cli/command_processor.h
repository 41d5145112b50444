// The interpreter of typed commands.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "cli/command_state.h"
#include "cli/command_table.h"

namespace quarro {

class MParams;
class SGClientBase;

// Splits lines into words at blanks, finds the command in its table, checks parameter count,
// engine and grid, and calls the handler. Belongs to the console thread.
class CommandProcessor {
 public:
  // How a command line ends other than well. Who throws one has said why.
  class bad_command {};   // unknown command, wrong parameters
  class cli_done {};      // the exit command
  class cmd_failed {};    // understood, but failed
  class not_attached {};  // needs an engine
  class no_grid {};       // needs a current grid

  using CommandMap = std::map<std::string, CommandEntry>;

  // The front end is not owned and outlives the processor.
  CommandProcessor(SGClientBase* front_end, const MParams& params);
  CommandProcessor(const CommandProcessor&) = delete;
  CommandProcessor& operator=(const CommandProcessor&) = delete;
  ~CommandProcessor();

  // Runs one command line. An empty line and one that begins with # do nothing; every other one
  // goes into the history first. What the handler throws passes through.
  void Dispatch(const std::string& line);

  // "[host][grid][DEBUG]>> ", each bracket only where it applies.
  std::string BuildPrompt();

  static std::string Version();

  // Runs "help <command>", which enters the history like a typed line.
  void ShowHelp(const std::string& command);

  const CommandMap& Commands() const { return commands_; }
  CommandState& State() { return *state_; }

 private:
  CommandMap commands_;
  std::unique_ptr<CommandState> state_;
};

}  // namespace quarro
