// What a call-back says when fetching or using its result fails.
#pragma once

#include "cli/command_state.h"
#include "engine/exceptions.h"
#include "results/log_line.h"

namespace quarro {

// A null text means that the exception is no special case: it counts as any engine exception or,
// for `unknown`, passes through.
struct FailureTexts {
  const char* no_grid = nullptr;
  const char* resources = nullptr;
  const char* unexpected = nullptr;  // followed by the engine's reason and ").". Never null.
  const char* unknown = nullptr;     // for what is no engine exception
};

inline constexpr FailureTexts kResultFailures = {
    .no_grid = "server reported no grid was available for line.",
    .resources = "server reports out of resources getting resolutions.",
    .unexpected = "unexpected exception getting result ("};

inline constexpr FailureTexts kQueryFailures = {
    .no_grid = kResultFailures.no_grid,
    .resources = kResultFailures.resources,
    .unexpected = kResultFailures.unexpected,
    .unknown = "unknown exception in getting query result information."};

// Runs `body`. An exception of it is logged at level 4 in the words of `texts`, and gives false.
template <typename Body>
bool RunReporting(CommandState& state, const FailureTexts& texts, Body body) {
  const auto tell_unexpected = [&](const ExSGClientBase& failure) {
    LogLine(state, kError, texts.unexpected + failure.who() + ").");
  };
  const auto tell = [&](const char* text, const ExSGClientBase& failure) {
    if (text == nullptr) {
      tell_unexpected(failure);
    } else {
      LogLine(state, kError, text);
    }
  };
  try {
    body();
    return true;
  } catch (const ExSGCNoGrid& failure) {
    tell(texts.no_grid, failure);
  } catch (const ExSGCServerResources& failure) {
    tell(texts.resources, failure);
  } catch (const ExSGClientBase& failure) {
    tell_unexpected(failure);
  } catch (...) {
    if (texts.unknown == nullptr) {
      throw;
    }
    LogLine(state, kError, texts.unknown);
  }
  return false;
}

}  // namespace quarro
