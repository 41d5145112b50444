// interval: times a stretch of work.
#include <string>

#include <boost/date_time/posix_time/posix_time.hpp>

#include "cli/command_handlers.h"
#include "cli/command_processor.h"
#include "engine/sg_client_base.h"
#include "results/elapsed_text.h"
#include "results/log_line.h"

namespace quarro {

namespace {

constexpr int kIntervalLevel = 6;

boost::posix_time::ptime Now() { return boost::posix_time::microsec_clock::universal_time(); }

void Start(CommandState& state) {
  if (state.interval_active) {
    LogLine(state, kError, "you are already in a timing loop, and they can't be nested.");
    throw CommandProcessor::bad_command();
  }
  state.interval_start = Now();
  state.interval_active = true;
}

void Stop(CommandState& state) {
  if (!state.interval_active) {
    LogLine(state, kError, "can't stop timing sequence if it hasn't been started!");
    throw CommandProcessor::bad_command();
  }
  state.interval_end = Now();
  state.interval_active = false;
}

// To the log of the engine front end, where it stands among the engine's own messages.
void LogElapsed(CommandState& state) {
  Slog& log = state.client->Log();
  log << SlogLevel(kIntervalLevel);
  log() << ElapsedText(state.interval_end - state.interval_start) << endmsg;
}

}  // namespace

void IntervalCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                     std::uint32_t /*word_count*/) {
  CommandState& state = processor.State();
  if (*first == "start") {
    Start(state);
  } else if (*first == "stop") {
    Stop(state);
    if (++first != last && *first == "log") {
      LogElapsed(state);
    } else {
      processor.Dispatch("show time");
    }
  } else {
    processor.ShowHelp("interval");
    throw CommandProcessor::bad_command();
  }
}

}  // namespace quarro
