// The commands that find engines, attach one and let it go.
#include <cstdint>
#include <string>

#include "cli/command_handlers.h"
#include "cli/command_processor.h"
#include "cli/conversions.h"
#include "engine/sg_client_base.h"
#include "slog/slog.h"

namespace quarro {

void BroadcastCommand(CommandProcessor& processor, WordIterator /*first*/, WordIterator /*last*/,
                      std::uint32_t /*word_count*/) {
  CommandState& state = processor.State();
  Slog log(&state.log);
  log << SlogLevel(1);
  log() << "searching for computational engines on the local network (please wait)." << endmsg;
  state.engines.clear();
  try {
    state.engines = state.client->FindEngines();
  } catch (const ExSGClientBase& failure) {
    log << SlogLevel(4);
    log() << "exception from client code (" << failure.who() << ").  Command failed." << endmsg;
    throw CommandProcessor::cmd_failed();
  }
  if (state.engines.empty()) {
    log << SlogLevel(3);
    log() << "no clients found." << endmsg;
  } else {
    log << SlogLevel(1);
    log() << "found " << state.engines.size() << " computational engines on local network."
          << endmsg;
  }
}

void AttachCommand(CommandProcessor& processor, WordIterator first, WordIterator /*last*/,
                   std::uint32_t /*word_count*/) {
  CommandState& state = processor.State();
  Slog log(&state.log);
  if (state.attached) {
    log << SlogLevel(4);
    log() << "you are already attached (use 'detach' first)." << endmsg;
    throw CommandProcessor::bad_command();
  }
  std::uint32_t number = 0;
  if (!ConvertWord(*first, number)) {
    log << SlogLevel(4);
    log() << "can't convert \"" << *first << "\" to number for engine attach." << endmsg;
    processor.ShowHelp("attach");
    throw CommandProcessor::bad_command();
  }
  if (number == 0) {
    log << SlogLevel(4);
    log() << "can't select engine 0!" << endmsg;
    return;
  }
  if (number > state.engines.size()) {
    log << SlogLevel(4);
    log() << "only " << state.engines.size() << " engines known; can't select " << number << "."
          << endmsg;
    return;
  }
  log << SlogLevel(1);
  log() << "sending engine commit request to engine " << number << " (please wait)." << endmsg;
  const QuarroSpec& engine = state.engines[number - 1];
  try {
    state.client->AttachEngine(engine);
  } catch (const ExSGClientBase& failure) {
    log << SlogLevel(4);
    log() << "failed to attach (" << failure.who() << ")." << endmsg;
    return;
  }
  log << SlogLevel(1);
  log() << "attached OK." << endmsg;
  state.attached = true;
  state.engine_index = static_cast<std::int32_t>(number - 1);
  state.last_attached = engine;
}

void DetachCommand(CommandProcessor& processor, WordIterator /*first*/, WordIterator /*last*/,
                   std::uint32_t /*word_count*/) {
  CommandState& state = processor.State();
  Slog log(&state.log);
  log << SlogLevel(1);
  log() << "sending engine detach command." << endmsg;
  try {
    state.client->DetachEngine();
  } catch (const ExSGClientBase& failure) {
    log << SlogLevel(4);
    log() << "failed to detach (" << failure.who() << ")." << endmsg;
    return;
  }
  state.attached = false;
  state.grid_active = false;
  state.grid_name.Set("");
  state.engine_index = -1;
  log << SlogLevel(1);
  log() << "detached OK." << endmsg;
}

}  // namespace quarro
