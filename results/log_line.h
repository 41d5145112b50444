// One line on the console's command channel.
#pragma once

#include <string>

#include "cli/command_state.h"
#include "slog/slog.h"

namespace quarro {

inline constexpr int kInformation = 1;
inline constexpr int kWarning = 3;
inline constexpr int kError = 4;

// Any thread.
inline void LogLine(CommandState& state, int level, const std::string& text) {
  Slog log(&state.log);
  log << SlogLevel(level);
  log() << text << endmsg;
}

}  // namespace quarro
