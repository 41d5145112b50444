#include "gridding/service/engine_log.h"

#include "slog/slog.h"

namespace quarro::service {

void LogEngine(int level, const std::string& message) {
  Slog log("engine");
  log << SlogLevel(level);
  log() << message << endmsg;
}

}  // namespace quarro::service
