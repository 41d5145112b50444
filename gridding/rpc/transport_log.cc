#include "gridding/rpc/transport_log.h"

#include <grpc/support/log.h>

#include "slog/slog.h"

namespace quarro::rpc {

namespace {

void Drop(gpr_log_func_args* /*message*/) {}

void Log(gpr_log_func_args* message) {
  if (message->severity != GPR_LOG_SEVERITY_ERROR) return;
  Slog log("network");
  log << SlogLevel(3);
  log() << message->message << endmsg;
}

}  // namespace

void RouteTransportLog(bool quiet) { gpr_set_log_function(quiet ? Drop : Log); }

}  // namespace quarro::rpc
