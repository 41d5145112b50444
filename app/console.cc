// The console loop.
#include "app/console.h"

#include <iostream>
#include <utility>

#include "app/line_reader.h"
#include "cli/command_processor.h"
#include "slog/slog.h"

namespace quarro {
namespace {

// The next line to run. Empty lines bring no new prompt.
std::string NextLine(CommandProcessor& processor, LineReader& reader, std::string& first_command) {
  const std::string prompt = processor.BuildPrompt();
  if (!first_command.empty()) {
    std::cout << prompt << std::flush;
    return std::exchange(first_command, "");
  }
  std::string line = reader.ReadLine(prompt);
  while (line.empty()) {
    line = reader.ReadLine("");
  }
  return line;
}

void Complain(const char* message) {
  Slog log("driver");
  log << SlogLevel(4);
  log() << message << endmsg;
}

void Leave(CommandProcessor& processor) {
  Slog log("driver");
  log << SlogLevel(1);
  log() << "exit command; done." << endmsg;
  if (processor.State().Attached()) {
    processor.Dispatch("detach");
  }
  // What call-backs told since the last command.
  processor.State().messages.FlushMessages();
}

}  // namespace

void RunConsole(CommandProcessor& processor, LineReader& reader, std::string first_command) {
  bool done = false;
  while (!done) {
    const std::string line = NextLine(processor, reader, first_command);
    try {
      processor.Dispatch(line);
    } catch (const CommandProcessor::cli_done&) {
      done = true;
    } catch (const CommandProcessor::bad_command&) {
      Complain("command garbled.");
    } catch (const CommandProcessor::cmd_failed&) {
      Complain("command failed.");
    } catch (const CommandProcessor::not_attached&) {
      Complain("you need to be attached to a server to issue that command.");
    } catch (const CommandProcessor::no_grid&) {
      Complain("you need a grid active to issue that command.");
    }
    if (!done) {
      processor.State().messages.FlushMessages();
    }
  }
  Leave(processor);
}

}  // namespace quarro
