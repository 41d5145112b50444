// debug: switches the engine's traces on and off.
#include <string>

#include <boost/lexical_cast.hpp>

#include "cli/command_handlers.h"
#include "cli/command_processor.h"
#include "engine/sg_client_base.h"
#include "results/callback_failures.h"
#include "results/log_line.h"

namespace quarro {

namespace {

constexpr FailureTexts kTraceFailures = {
    .no_grid = "error: server reported no grid was available for debugging.",
    .unexpected = "error: unexpected exception getting result (",
    .unknown = "error: unexpected exception (with no known type)."};

[[noreturn]] void ShowHelpAndRefuse(CommandProcessor& processor) {
  processor.ShowHelp("debug");
  throw CommandProcessor::bad_command();
}

[[noreturn]] void Refuse(CommandState& state, const std::string& reason) {
  LogLine(state, kError, reason);
  throw CommandProcessor::bad_command();
}

bool ReadSwitch(CommandState& state, const std::string& word) {
  if (word != "on" && word != "off") {
    Refuse(state, "debug state must be either 'on' or 'off' (and not " + word + ").");
  }
  return word == "on";
}

void RequestAt(CommandState& state, double x, double y, bool on) {
  state.rendezvous.Reset();
  state.client->DebugAt(x, y, on, state.CallBack(&CommandState::OnDebugSet));
}

void RequestCell(CommandState& state, std::uint32_t column, std::uint32_t row, bool on) {
  state.rendezvous.Reset();
  state.client->DebugCell(column, row, on, state.CallBack(&CommandState::OnDebugSet));
}

void RequestOffEverywhere(CommandState& state) {
  state.rendezvous.Reset();
  state.client->DebugOffEverywhere(state.CallBack(&CommandState::OnDebugSet));
}

// Sends the request that mode and words ask for. Numbers that do not convert throw
// boost::bad_lexical_cast.
void RequestTrace(CommandProcessor& processor, WordIterator first, WordIterator last) {
  CommandState& state = processor.State();
  const bool on = ReadSwitch(state, *first++);
  const std::string& mode = *first++;
  if (mode == "everywhere") {
    if (on) {
      Refuse(state, "debug can only be turned off everywhere!.");
    }
    RequestOffEverywhere(state);
    return;
  }
  if (mode != "at" && mode != "in" && mode != "offset") {
    Refuse(state,
           "debug must be 'at' at projected location, or 'in' a cell (and not " + mode + ").");
  }
  if (last - first < 2) {
    ShowHelpAndRefuse(processor);
  }
  if (mode == "in") {
    const auto column = boost::lexical_cast<std::uint32_t>(first[0]);
    RequestCell(state, column, boost::lexical_cast<std::uint32_t>(first[1]), on);
    return;
  }
  double x = boost::lexical_cast<double>(first[0]);
  double y = boost::lexical_cast<double>(first[1]);
  if (mode == "offset") {
    const SGBoundingBox box = state.bbox.Get();
    x += box.east();  // offsets count from the south-east corner
    y += box.south();
  }
  RequestAt(state, x, y, on);
}

}  // namespace

void DebugCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                  std::uint32_t word_count) {
  if (word_count != 3 && word_count != 5) {
    ShowHelpAndRefuse(processor);
  }
  RequestTrace(processor, first, last);
  CommandState& state = processor.State();
  if (state.rendezvous.Wait()) {
    LogLine(state, kInformation, "debug configured.");
  } else {
    LogLine(state, kError, "debug set failed.");
  }
}

void CommandState::OnDebugSet(const SEResultToken& token) {
  const bool configured = RunReporting(*this, kTraceFailures, [&] {
    const auto result = FetchResult<ResultDebug>(*client, token);
    messages.PostMessage("debug commenced at, output to \"" + result->output_file + "\".");
  });
  rendezvous.Signal(configured);
}

}  // namespace quarro
