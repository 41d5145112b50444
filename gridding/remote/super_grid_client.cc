#include "gridding/remote/super_grid_client.h"

#include <sstream>

#include "gridding/service/delivery.h"
#include "gridding/service/parameter_table.h"
#include "gridding/service/unattached.h"

namespace quarro {

using service::RequestKind;

struct SuperGridClient::Engine {
  service::Delivery delivery;

  void Fail(RequestKind kind, const ResultCallback& on_done) {
    service::FailUnattached(delivery, kind, on_done);
  }
  [[noreturn]] static void Refuse() { throw ExSGClientBase(service::kNotAttached); }
};

SuperGridClient::SuperGridClient(const MParams& params) : engine_(std::make_unique<Engine>()) {
  service::WarnOfUnknownParameters(params);
}

SuperGridClient::~SuperGridClient() = default;

bool SuperGridClient::SetRemoteLogLevel(std::uint32_t) { return false; }

std::vector<QuarroSpec> SuperGridClient::FindEngines() { return {}; }

void SuperGridClient::AttachEngine(const QuarroSpec& engine) {
  std::ostringstream reason;
  reason << "the engine at " << engine << " cannot be reached";
  throw ExSGClientBase(reason.str());
}

void SuperGridClient::DetachEngine() { Engine::Refuse(); }

void SuperGridClient::RequestServerStatistics(const ResultCallback& on_done) {
  engine_->Fail(RequestKind::kStatistics, on_done);
}

void SuperGridClient::DebugCell(std::uint32_t, std::uint32_t, bool, const ResultCallback& on_done) {
  engine_->Fail(RequestKind::kTrace, on_done);
}

void SuperGridClient::DebugAt(double, double, bool, const ResultCallback& on_done) {
  engine_->Fail(RequestKind::kTrace, on_done);
}

void SuperGridClient::DebugOffEverywhere(const ResultCallback& on_done) {
  engine_->Fail(RequestKind::kTrace, on_done);
}

void SuperGridClient::RequestQuery(std::uint32_t, const ResultCallback& on_done) {
  engine_->Fail(RequestKind::kQuery, on_done);
}

void SuperGridClient::PurgeResults(const std::set<std::uint32_t>&, const ResultCallback& on_done) {
  engine_->Fail(RequestKind::kPurge, on_done);
}

void SuperGridClient::PurgeAllResults(const ResultCallback& on_done) {
  engine_->Fail(RequestKind::kPurge, on_done);
}

void SuperGridClient::ConstructGrid(const std::string&, float, float, const ResultCallback&) {
  Engine::Refuse();
}

void SuperGridClient::LoadGrid(const std::string&, const ResultCallback&) { Engine::Refuse(); }

void SuperGridClient::AddLine(const std::string&, std::uint32_t, bool, const ResultCallback&) {
  Engine::Refuse();
}

void SuperGridClient::RequestResolution(const SGBoundingBox&, std::uint32_t,
                                        const ResultCallback&) {
  Engine::Refuse();
}

void SuperGridClient::RequestDepth(const SGBoundingBox&, std::uint32_t, std::uint32_t,
                                   const ResultCallback&) {
  Engine::Refuse();
}

void SuperGridClient::RequestHypotheses(const SGBoundingBox&, std::uint32_t, std::uint32_t,
                                        const ResultCallback&) {
  Engine::Refuse();
}

void SuperGridClient::DropGrid(bool, const ResultCallback& on_done) {
  engine_->Fail(RequestKind::kDropGrid, on_done);
}

void SuperGridClient::SynchGrid(const ResultCallback& on_done) {
  engine_->Fail(RequestKind::kSynchGrid, on_done);
}

void SuperGridClient::RefineGrid(std::uint32_t, const ResultCallback& on_done) {
  engine_->Fail(RequestKind::kRefineGrid, on_done);
}

SEBaseResult* SuperGridClient::GetResult(const SEResultToken& token) {
  return engine_->delivery.pool().Take(token.uid).release();
}

}  // namespace quarro
