// The commands that create, load, drop, synchronise and refine the current grid. Each sends one
// request and holds the console until its call-back has come.
#include <cstdint>
#include <string>

#include "cli/command_handlers.h"
#include "cli/command_processor.h"
#include "cli/conversions.h"
#include "engine/sg_client_base.h"
#include "slog/slog.h"

namespace quarro {

void GridDetailHelp(CommandProcessor& processor) {
  Slog log(&processor.State().log);
  for (const char* line :
       {"", "\tTwo variants are allowed: reloading an extant grid, and creating a new one.",
        "info:\tWithout extra parameters, an extant grid is reloaded from the current working "
        "directory of the server;",
        "\twith extra parameters a new grid is created.  Parameters should be bounds in a "
        "projected coordinate",
        "\tsystem.  The <res> parameter is the dimension for the low-resolution SuperGrid, while "
        "<min. res.>",
        "\tis the minimum resolution to which the SuperGrid is to be refined."}) {
    log << SlogLevel(1);
    log() << line << endmsg;
  }
}

void GridCommand(CommandProcessor& processor, WordIterator first, WordIterator /*last*/,
                 std::uint32_t word_count) {
  CommandState& state = processor.State();
  Slog log(&state.log);
  const bool load = word_count == 2;
  if (!load && word_count != 4) {
    processor.ShowHelp("grid");
    throw CommandProcessor::bad_command();
  }
  const std::string& name = *first;
  float resolution_m = 0.0F;
  float min_resolution_m = 0.0F;
  if (!load && !(ConvertWord(first[1], resolution_m) && ConvertWord(first[2], min_resolution_m))) {
    log << SlogLevel(4);
    log() << "failed to covert parameters for command." << endmsg;
    throw CommandProcessor::bad_command();
  }

  state.rendezvous.Reset();
  log << SlogLevel(1);
  log() << "sending grid construction request to server (please wait)." << endmsg;
  try {
    if (load) {
      state.client->LoadGrid(name, state.CallBack(&CommandState::OnGridLoaded));
    } else {
      state.client->ConstructGrid(name, resolution_m, min_resolution_m,
                                  state.CallBack(&CommandState::OnGridConstructed));
    }
  } catch (const ExSGClientBase& failure) {
    log << SlogLevel(4);
    log() << "failed to send command to server (" << failure.who() << ")." << endmsg;
    return;
  }
  if (!state.rendezvous.Wait()) {
    log << SlogLevel(4);
    log() << "grid construction failed." << endmsg;
    return;
  }
  log << SlogLevel(1);
  log() << "grid construction complete." << endmsg;
  state.grid_active = true;
  state.grid_name.Set(name);
}

void DropCommand(CommandProcessor& processor, WordIterator first, WordIterator /*last*/,
                 std::uint32_t word_count) {
  CommandState& state = processor.State();
  Slog log(&state.log);
  const bool asap = word_count == 2;
  if (asap && *first != "asap") {
    log << SlogLevel(4);
    log() << "syntax: drop [asap]" << endmsg;
    throw CommandProcessor::bad_command();
  }

  state.rendezvous.Reset();
  state.client->DropGrid(asap, state.CallBack(&CommandState::OnAcknowledged));
  log << SlogLevel(1);
  log() << "sending grid drop command (please wait for current lineset completion, if any)."
        << endmsg;
  if (!state.rendezvous.Wait()) {
    log << SlogLevel(4);
    log() << "failed to drop grid from server." << endmsg;
    return;
  }
  state.grid_active = false;
  state.grid_name.Set("");
  log << SlogLevel(1);
  log() << "grid dropped OK." << endmsg;
}

void SynchCommand(CommandProcessor& processor, WordIterator /*first*/, WordIterator /*last*/,
                  std::uint32_t /*word_count*/) {
  CommandState& state = processor.State();
  Slog log(&state.log);
  state.rendezvous.Reset();
  state.client->SynchGrid(state.CallBack(&CommandState::OnAcknowledged));
  log << SlogLevel(1);
  log() << "sending grid synch command (please wait for current lineset completion, if any)."
        << endmsg;
  if (state.rendezvous.Wait()) {
    log << SlogLevel(1);
    log() << "grid synchronised OK." << endmsg;
  } else {
    log << SlogLevel(4);
    log() << "failed to synchronise grid on server." << endmsg;
  }
}

void RefineCommand(CommandProcessor& processor, WordIterator first, WordIterator /*last*/,
                   std::uint32_t word_count) {
  CommandState& state = processor.State();
  Slog log(&state.log);
  std::uint32_t thread_count = 0;
  if (word_count == 2 && !ConvertWord(*first, thread_count)) {
    log << SlogLevel(4);
    log() << "number of threads must be a positive integer." << endmsg;
    throw CommandProcessor::bad_command();
  }

  state.rendezvous.Reset();
  state.client->RefineGrid(thread_count, state.CallBack(&CommandState::OnRefined));
  log << SlogLevel(1);
  log() << "sending refine grid command (please wait for current lineset completion, if any)."
        << endmsg;
  if (state.rendezvous.Wait()) {
    log << SlogLevel(1);
    log() << "grid refined OK." << endmsg;
  } else {
    log << SlogLevel(4);
    log() << "error: failed to refine grid on server." << endmsg;
  }
}

}  // namespace quarro
