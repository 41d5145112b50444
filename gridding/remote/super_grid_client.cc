#include "gridding/remote/super_grid_client.h"

#include <chrono>

#include "gridding/remote/remote_engine.h"
#include "gridding/rpc/discovery/engine_finder.h"
#include "gridding/rpc/message_forms.h"
#include "gridding/rpc/transport_log.h"
#include "gridding/service/engine_log.h"
#include "gridding/service/parameter_table.h"

namespace quarro {

using remote::Asked;
using service::Order;
using service::RequestKind;
using Stub = v1::Engine::Stub;

namespace {

v1::GridResultRequest GridRequest(const SGBoundingBox& box, std::uint32_t result_number,
                                  bool full_resolution) {
  v1::GridResultRequest request;
  *request.mutable_box() = rpc::ToMessage(box);
  request.set_result_number(result_number);
  request.set_full_resolution(full_resolution);
  return request;
}

// A name or path as the engine takes it: bytes that are no UTF-8 have no form in a message.
const std::string& Sendable(const std::string& name) {
  if (rpc::Utf8(name) != name) {
    throw ExSGClientBase("the name \"" + rpc::Utf8(name) +
                         "\" is not in UTF-8, which engines on the network need: rename it");
  }
  return name;
}

}  // namespace

class SuperGridClient::Engine : public remote::RemoteEngine {
 public:
  using RemoteEngine::RemoteEngine;
};

SuperGridClient::SuperGridClient(const MParams& params)
    : engine_(std::make_unique<Engine>(params)) {
  rpc::RouteTransportLog(true);
  service::WarnOfUnknownParameters(params);
}

SuperGridClient::~SuperGridClient() = default;

bool SuperGridClient::SetRemoteLogLevel(std::uint32_t level) {
  return engine_->SetLogLevel(level) && SetLogFilter(SlogLevel(static_cast<int>(level)));
}

std::vector<QuarroSpec> SuperGridClient::FindEngines() {
  const rpc::NetworkSettings& settings = engine_->settings();
  const rpc::DiscoveryOutcome outcome =
      rpc::FindEngines({.port = settings.discovery_port,
                        .wait = std::chrono::milliseconds(settings.discovery_wait_ms),
                        .addresses = settings.discovery_addresses,
                        .engines = settings.engines});
  for (const std::string& problem : outcome.problems) {
    service::LogEngine(service::kLogWarning, problem);
  }
  // A mistake of the parameter file, or an engine that is expected: seen by default.
  for (const std::string& problem : outcome.listed_problems) {
    service::LogEngine(service::kLogRefusal, problem);
  }
  return outcome.engines;
}

void SuperGridClient::AttachEngine(const QuarroSpec& engine) { engine_->Attach(engine); }

void SuperGridClient::DetachEngine() { engine_->Detach(); }

void SuperGridClient::RequestServerStatistics(const ResultCallback& on_done) {
  engine_->AskOrFail(&Stub::RequestServerStatistics, v1::StatisticsRequest(),
                     {RequestKind::kStatistics, Order::kFree}, on_done);
}

void SuperGridClient::DebugCell(std::uint32_t col, std::uint32_t row, bool on,
                                const ResultCallback& on_done) {
  v1::DebugCellRequest request;
  request.set_column(col);
  request.set_row(row);
  request.set_on(on);
  engine_->AskOrFail(&Stub::DebugCell, request, {RequestKind::kTrace, Order::kFree}, on_done);
}

void SuperGridClient::DebugAt(double x, double y, bool on, const ResultCallback& on_done) {
  v1::DebugAtRequest request;
  request.set_easting_m(x);
  request.set_northing_m(y);
  request.set_on(on);
  engine_->AskOrFail(&Stub::DebugAt, request, {RequestKind::kTrace, Order::kFree}, on_done);
}

void SuperGridClient::DebugOffEverywhere(const ResultCallback& on_done) {
  engine_->AskOrFail(&Stub::DebugOffEverywhere, v1::DebugOffRequest(),
                     {RequestKind::kTrace, Order::kFree}, on_done);
}

void SuperGridClient::RequestQuery(std::uint32_t kind, const ResultCallback& on_done) {
  v1::QueryRequest request;
  request.set_kind(kind);
  engine_->AskOrFail(&Stub::RequestQuery, request, {RequestKind::kQuery, Order::kFree}, on_done);
}

void SuperGridClient::PurgeResults(const std::set<std::uint32_t>& result_numbers,
                                   const ResultCallback& on_done) {
  v1::PurgeRequest request;
  for (const std::uint32_t number : result_numbers) request.add_result_numbers(number);
  engine_->AskOrFail(&Stub::PurgeResults, request, {RequestKind::kPurge, Order::kFree}, on_done);
}

void SuperGridClient::PurgeAllResults(const ResultCallback& on_done) {
  v1::PurgeRequest request;
  request.set_all(true);
  engine_->AskOrFail(&Stub::PurgeResults, request, {RequestKind::kPurge, Order::kFree}, on_done);
}

void SuperGridClient::ConstructGrid(const std::string& name, float resolution, float min_resolution,
                                    const ResultCallback& on_done) {
  v1::ConstructGridRequest request;
  request.set_name(Sendable(name));
  request.set_resolution_m(resolution);
  request.set_min_resolution_m(min_resolution);
  engine_->Ask(&Stub::ConstructGrid, request, {RequestKind::kOpenGrid, Order::kAfterAllEarlier},
               on_done);
}

void SuperGridClient::LoadGrid(const std::string& name, const ResultCallback& on_done) {
  v1::LoadGridRequest request;
  request.set_name(Sendable(name));
  engine_->Ask(&Stub::LoadGrid, request, {RequestKind::kOpenGrid, Order::kAfterAllEarlier},
               on_done);
}

void SuperGridClient::AddLine(const std::string& file_name, std::uint32_t line_id, bool rendezvous,
                              const ResultCallback& on_done) {
  v1::AddLineRequest request;
  request.set_file_name(Sendable(file_name));
  request.set_line_id(line_id);
  request.set_rendezvous(rendezvous);
  engine_->Ask(&Stub::AddLine, request,
               {.kind = RequestKind::kLine, .order = Order::kInOrder, .line_id = line_id}, on_done);
}

void SuperGridClient::RequestResolution(const SGBoundingBox& box, std::uint32_t result_number,
                                        const ResultCallback& on_done) {
  engine_->Ask(&Stub::RequestResolution, GridRequest(box, result_number, false),
               {RequestKind::kResolution, Order::kFree, result_number}, on_done);
}

void SuperGridClient::RequestDepth(const SGBoundingBox& box, std::uint32_t result_number,
                                   std::uint32_t full_resolution, const ResultCallback& on_done) {
  engine_->Ask(&Stub::RequestDepth, GridRequest(box, result_number, full_resolution != 0),
               {RequestKind::kDepth, Order::kFree, result_number}, on_done);
}

void SuperGridClient::RequestHypotheses(const SGBoundingBox& box, std::uint32_t result_number,
                                        std::uint32_t full_resolution,
                                        const ResultCallback& on_done) {
  engine_->Ask(&Stub::RequestHypotheses, GridRequest(box, result_number, full_resolution != 0),
               {RequestKind::kHypotheses, Order::kFree, result_number}, on_done);
}

void SuperGridClient::DropGrid(bool asap, const ResultCallback& on_done) {
  v1::DropGridRequest request;
  request.set_asap(asap);
  engine_->AskOrFail(&Stub::DropGrid, request, {RequestKind::kDropGrid, Order::kAfterAllEarlier},
                     on_done);
}

void SuperGridClient::SynchGrid(const ResultCallback& on_done) {
  engine_->AskOrFail(&Stub::SynchGrid, v1::SynchGridRequest(),
                     {RequestKind::kSynchGrid, Order::kAfterAllEarlier}, on_done);
}

void SuperGridClient::RefineGrid(std::uint32_t n_threads, const ResultCallback& on_done) {
  v1::RefineGridRequest request;
  request.set_threads(n_threads);
  engine_->AskOrFail(&Stub::RefineGrid, request,
                     {RequestKind::kRefineGrid, Order::kAfterAllEarlier}, on_done);
}

SEBaseResult* SuperGridClient::GetResult(const SEResultToken& token) {
  return engine_->Take(token).release();
}

}  // namespace quarro
