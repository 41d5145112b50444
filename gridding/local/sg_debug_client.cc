#include "gridding/local/sg_debug_client.h"

#include <utility>

#include "gridding/service/delivery.h"
#include "gridding/service/engine_config.h"
#include "gridding/service/grid_session.h"
#include "gridding/service/parameter_table.h"
#include "gridding/service/unattached.h"

namespace quarro {

namespace {

constexpr std::uint32_t kProtocolVersion = 1;
constexpr std::uint32_t kEngineVersion = (1U << 16U) | 1U;
constexpr std::uint32_t kLoopback = 0x7f000001;
constexpr std::uint32_t kGreatestLogLevel = 7;

}  // namespace

using service::RequestKind;

struct SGDebugClient::Engine {
  explicit Engine(const MParams& params) : config(service::ReadEngineConfig(params)) {}

  // Throws ExSGClientBase when no engine is attached.
  service::GridSession& Session() const {
    if (!session) throw ExSGClientBase(service::kNotAttached);
    return *session;
  }

  // Hands the request to the session, or fails it through its call-back.
  template <typename Ask>
  void AskOrFail(RequestKind kind, const ResultCallback& on_done, const Ask& ask) {
    if (session) {
      ask(*session);
    } else {
      service::FailUnattached(delivery, kind, on_done);
    }
  }

  QuarroSpec Spec() const {
    return {.protocol_version = kProtocolVersion,
            .engine_version = kEngineVersion,
            .threads = config.threads,
            .port = 0,
            .ipv4_address = kLoopback};
  }

  const service::EngineConfig config;
  service::Delivery delivery;
  std::unique_ptr<service::GridSession> session;  // null while detached
};

SGDebugClient::SGDebugClient(const MParams& params) : engine_(std::make_unique<Engine>(params)) {
  service::WarnOfUnknownParameters(params);
}

SGDebugClient::~SGDebugClient() = default;

bool SGDebugClient::SetRemoteLogLevel(std::uint32_t level) {
  if (!engine_->session || level > kGreatestLogLevel) return false;
  return SetLogFilter(SlogLevel(static_cast<int>(level)));
}

std::vector<QuarroSpec> SGDebugClient::FindEngines() { return {engine_->Spec()}; }

void SGDebugClient::AttachEngine(const QuarroSpec& engine) {
  if (engine.port != 0 || engine.ipv4_address != kLoopback) {
    throw ExSGClientBase("the engine named is not the one in this process");
  }
  if (engine_->session) DetachEngine();
  engine_->session = std::make_unique<service::GridSession>(engine_->config, engine_->delivery);
}

void SGDebugClient::DetachEngine() {
  engine_->Session();
  if (engine_->delivery.OnCallbackThread()) {
    throw ExSGClientBase("an engine cannot be detached by a call-back, which it would wait for");
  }
  // The session is there until its last call-back has returned, which may ask it for more.
  engine_->session->Finish();
  engine_->session.reset();
}

void SGDebugClient::RequestServerStatistics(const ResultCallback& on_done) {
  engine_->AskOrFail(RequestKind::kStatistics, on_done,
                     [&](auto& session) { session.RequestServerStatistics(on_done); });
}

void SGDebugClient::DebugCell(std::uint32_t col, std::uint32_t row, bool on,
                              const ResultCallback& on_done) {
  engine_->AskOrFail(RequestKind::kTrace, on_done,
                     [&](auto& session) { session.DebugCell(col, row, on, on_done); });
}

void SGDebugClient::DebugAt(double x, double y, bool on, const ResultCallback& on_done) {
  engine_->AskOrFail(RequestKind::kTrace, on_done,
                     [&](auto& session) { session.DebugAt(x, y, on, on_done); });
}

void SGDebugClient::DebugOffEverywhere(const ResultCallback& on_done) {
  engine_->AskOrFail(RequestKind::kTrace, on_done,
                     [&](auto& session) { session.DebugOffEverywhere(on_done); });
}

void SGDebugClient::RequestQuery(std::uint32_t kind, const ResultCallback& on_done) {
  engine_->AskOrFail(RequestKind::kQuery, on_done,
                     [&](auto& session) { session.RequestQuery(kind, on_done); });
}

void SGDebugClient::PurgeResults(const std::set<std::uint32_t>& result_numbers,
                                 const ResultCallback& on_done) {
  engine_->AskOrFail(RequestKind::kPurge, on_done,
                     [&](auto& session) { session.PurgeResults(result_numbers, on_done); });
}

void SGDebugClient::PurgeAllResults(const ResultCallback& on_done) {
  engine_->AskOrFail(RequestKind::kPurge, on_done,
                     [&](auto& session) { session.PurgeAllResults(on_done); });
}

void SGDebugClient::ConstructGrid(const std::string& name, float resolution, float min_resolution,
                                  const ResultCallback& on_done) {
  engine_->Session().ConstructGrid(name, resolution, min_resolution, on_done);
}

void SGDebugClient::LoadGrid(const std::string& name, const ResultCallback& on_done) {
  engine_->Session().LoadGrid(name, on_done);
}

void SGDebugClient::AddLine(const std::string& file_name, std::uint32_t line_id, bool rendezvous,
                            const ResultCallback& on_done) {
  engine_->Session().AddLine(file_name, line_id, rendezvous, on_done);
}

void SGDebugClient::RequestResolution(const SGBoundingBox& box, std::uint32_t result_number,
                                      const ResultCallback& on_done) {
  engine_->Session().RequestResolution(box, result_number, on_done);
}

void SGDebugClient::RequestDepth(const SGBoundingBox& box, std::uint32_t result_number,
                                 std::uint32_t full_resolution, const ResultCallback& on_done) {
  engine_->Session().RequestDepth(box, result_number, full_resolution != 0, on_done);
}

void SGDebugClient::RequestHypotheses(const SGBoundingBox& box, std::uint32_t result_number,
                                      std::uint32_t full_resolution,
                                      const ResultCallback& on_done) {
  engine_->Session().RequestHypotheses(box, result_number, full_resolution != 0, on_done);
}

void SGDebugClient::DropGrid(bool asap, const ResultCallback& on_done) {
  engine_->AskOrFail(RequestKind::kDropGrid, on_done,
                     [&](auto& session) { session.DropGrid(asap, on_done); });
}

void SGDebugClient::SynchGrid(const ResultCallback& on_done) {
  engine_->AskOrFail(RequestKind::kSynchGrid, on_done,
                     [&](auto& session) { session.SynchGrid(on_done); });
}

void SGDebugClient::RefineGrid(std::uint32_t n_threads, const ResultCallback& on_done) {
  engine_->AskOrFail(RequestKind::kRefineGrid, on_done,
                     [&](auto& session) { session.RefineGrid(n_threads, on_done); });
}

SEBaseResult* SGDebugClient::GetResult(const SEResultToken& token) {
  return engine_->delivery.pool().Take(token.uid).release();
}

}  // namespace quarro
