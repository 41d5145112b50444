#include "gridding/service/engine_log.h"

#include <utility>

#include "slog/slog.h"

namespace quarro::service {

namespace {

std::shared_ptr<const EngineLogSink>& ThreadSink() {
  thread_local std::shared_ptr<const EngineLogSink> sink;
  return sink;
}

}  // namespace

void LogEngine(int level, const std::string& message) {
  if (const auto sink = ThreadSink()) {
    (*sink)(level, message);
    return;
  }
  Slog log("engine");
  log << SlogLevel(level);
  log() << message << endmsg;
}

EngineLogScope::EngineLogScope(std::shared_ptr<const EngineLogSink> sink)
    : before_(std::exchange(ThreadSink(), std::move(sink))) {}

EngineLogScope::~EngineLogScope() { ThreadSink() = std::move(before_); }

std::shared_ptr<const EngineLogSink> CurrentEngineLogSink() { return ThreadSink(); }

}  // namespace quarro::service
