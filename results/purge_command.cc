// purge: discards results that wait at the engine.
#include <set>
#include <string>

#include "cli/command_handlers.h"
#include "cli/command_processor.h"
#include "cli/conversions.h"
#include "engine/sg_client_base.h"
#include "results/callback_failures.h"
#include "results/log_line.h"

namespace quarro {

namespace {

constexpr FailureTexts kPurgeFailures = {.resources = kQueryFailures.resources,
                                         .unexpected = kQueryFailures.unexpected,
                                         .unknown = kQueryFailures.unknown};

std::set<std::uint32_t> ReadNumbers(CommandState& state, WordIterator first, WordIterator last) {
  std::set<std::uint32_t> numbers;
  for (; first != last; ++first) {
    std::uint32_t number = 0;
    if (!ConvertWord(*first, number)) {
      LogLine(state, kError, "failed to convert UID list for purging.");
      throw CommandProcessor::bad_command();
    }
    numbers.insert(number);
  }
  return numbers;
}

}  // namespace

void PurgeCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                  std::uint32_t /*word_count*/) {
  CommandState& state = processor.State();
  const ResultCallback on_done = state.CallBack(&CommandState::OnPurged);
  if (*first == "all") {
    state.client->Purge(on_done);
  } else {
    state.client->PurgeResults(ReadNumbers(state, first, last), on_done);
  }
}

void CommandState::OnPurged(const SEResultToken& token) {
  RunReporting(*this, kPurgeFailures, [&] {
    FetchResult<ResultPosAck>(*client, token);
    messages.PostMessage("info: purge of results complete.(" +
                         std::to_string(pending_results.Count()) + " results outstanding)");
  });
}

}  // namespace quarro
