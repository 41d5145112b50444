// The engine's log from any thread of the engine library.
#pragma once

#include <string>

namespace quarro::service {

// Levels of the channel "engine".
inline constexpr int kLogStep = 1;
inline constexpr int kLogAccount = 2;
inline constexpr int kLogWarning = 3;
inline constexpr int kLogRefusal = 4;
inline constexpr int kLogError = 5;

// Writes one message to the channel "engine". Any thread.
void LogEngine(int level, const std::string& message);

}  // namespace quarro::service
