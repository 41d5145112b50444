// The protocol's calls, each handed to the session that it names.
#pragma once

#include <string>

#include <grpcpp/grpcpp.h>

#include "gridding/rpc/quarro_v1.grpc.pb.h"
#include "gridding/rpc/session_table.h"

namespace quarro::rpc {

// Called on gRPC's threads, many at a time.
class EngineService final : public v1::Engine::Service {
 public:
  // `sessions` must outlive this.
  EngineService(SessionTable& sessions, std::uint32_t reconnect_seconds);

  using Context = grpc::ServerContext;
  using Status = grpc::Status;

  Status OpenSession(Context* context, const v1::OpenSessionRequest* request,
                     v1::OpenSessionReply* reply) override;
  Status CloseSession(Context* context, const v1::CloseSessionRequest* request,
                      v1::CloseSessionReply* reply) override;
  Status Completions(Context* context, const v1::CompletionsRequest* request,
                     grpc::ServerWriter<v1::Event>* writer) override;
  Status Acknowledge(Context* context, const v1::AcknowledgeRequest* request,
                     v1::AcknowledgeReply* reply) override;
  Status FetchResult(Context* context, const v1::FetchResultRequest* request,
                     grpc::ServerWriter<v1::ResultChunk>* writer) override;
  Status ReleaseResult(Context* context, const v1::ReleaseResultRequest* request,
                       v1::ReleaseResultReply* reply) override;
  Status AnnouncementDone(Context* context, const v1::AnnouncementDoneRequest* request,
                          v1::AnnouncementDoneReply* reply) override;
  Status SetLogLevel(Context* context, const v1::SetLogLevelRequest* request,
                     v1::SetLogLevelReply* reply) override;

  Status RequestServerStatistics(Context* context, const v1::StatisticsRequest* request,
                                 v1::RequestReply* reply) override;
  Status DebugCell(Context* context, const v1::DebugCellRequest* request,
                   v1::RequestReply* reply) override;
  Status DebugAt(Context* context, const v1::DebugAtRequest* request,
                 v1::RequestReply* reply) override;
  Status DebugOffEverywhere(Context* context, const v1::DebugOffRequest* request,
                            v1::RequestReply* reply) override;
  Status RequestQuery(Context* context, const v1::QueryRequest* request,
                      v1::RequestReply* reply) override;
  Status PurgeResults(Context* context, const v1::PurgeRequest* request,
                      v1::RequestReply* reply) override;
  Status ConstructGrid(Context* context, const v1::ConstructGridRequest* request,
                       v1::RequestReply* reply) override;
  Status LoadGrid(Context* context, const v1::LoadGridRequest* request,
                  v1::RequestReply* reply) override;
  Status AddLine(Context* context, const v1::AddLineRequest* request,
                 v1::RequestReply* reply) override;
  Status RequestResolution(Context* context, const v1::GridResultRequest* request,
                           v1::RequestReply* reply) override;
  Status RequestDepth(Context* context, const v1::GridResultRequest* request,
                      v1::RequestReply* reply) override;
  Status RequestHypotheses(Context* context, const v1::GridResultRequest* request,
                           v1::RequestReply* reply) override;
  Status DropGrid(Context* context, const v1::DropGridRequest* request,
                  v1::RequestReply* reply) override;
  Status SynchGrid(Context* context, const v1::SynchGridRequest* request,
                   v1::RequestReply* reply) override;
  Status RefineGrid(Context* context, const v1::RefineGridRequest* request,
                    v1::RequestReply* reply) override;

 private:
  // Calls `act` with the session, or tells that there is none.
  template <typename Act>
  Status WithSession(const Context& context, const std::string& id, const Act& act) const;
  template <typename Request, typename Ask>
  Status Carry(const Context& context, const Request& request, v1::RequestReply& reply,
               service::RequestKind kind, const Ask& ask) const;

  SessionTable& sessions_;
  const std::uint32_t reconnect_seconds_;
};

}  // namespace quarro::rpc
