// The engine's log from any thread of the engine library.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace quarro::service {

// Levels of the channel "engine".
inline constexpr int kLogStep = 1;
inline constexpr int kLogAccount = 2;
inline constexpr int kLogWarning = 3;
inline constexpr int kLogRefusal = 4;
inline constexpr int kLogError = 5;

// Writes one message to the channel "engine", or to the calling thread's sink. Any thread.
void LogEngine(int level, const std::string& message);

// Where the messages of one session of a server go instead of the channel. Called on any thread.
using EngineLogSink = std::function<void(int level, const std::string& message)>;

// While it lives, messages of the calling thread go to `sink`, and so do those of the threads of a
// JobQueue and a Delivery that are made meanwhile, for as long as these live. Null: the channel.
class EngineLogScope {
 public:
  explicit EngineLogScope(std::shared_ptr<const EngineLogSink> sink);
  ~EngineLogScope();
  EngineLogScope(const EngineLogScope&) = delete;
  EngineLogScope& operator=(const EngineLogScope&) = delete;

 private:
  std::shared_ptr<const EngineLogSink> before_;
};

// That of the calling thread.
std::shared_ptr<const EngineLogSink> CurrentEngineLogSink();

}  // namespace quarro::service
