// What a front end on the network is attached to, and how it asks there.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "engine/quarro_spec.h"
#include "engine/result_token.h"
#include "gridding/remote/engine_link.h"
#include "gridding/remote/outstanding.h"
#include "gridding/rpc/network_settings.h"
#include "gridding/service/delivery.h"
#include "support/mparams.h"

namespace quarro::remote {

// Operations come from one thread at a time; Take from any.
class RemoteEngine {
 public:
  // Throws ExSGClientBase for a parameter out of range.
  explicit RemoteEngine(const MParams& params);
  // Detaches. Not on a thread of call-backs.
  // NOLINTNEXTLINE(bugprone-exception-escape)
  ~RemoteEngine();
  RemoteEngine(const RemoteEngine&) = delete;
  RemoteEngine& operator=(const RemoteEngine&) = delete;

  const rpc::NetworkSettings& settings() const { return settings_; }
  void Attach(const QuarroSpec& spec);
  void Detach();
  bool SetLogLevel(std::uint32_t level);

  // Sends a request with a header of its own. Throws ExSGClientBase when it was not accepted.
  template <typename Request>
  void Ask(EngineLink::Method<Request, v1::RequestReply> method, Request request,
           const Asked& asked, const ResultCallback& on_done) {
    EngineLink& link = Link();
    const std::uint64_t id = outstanding_->Begin();
    request.mutable_header()->set_session(link.session());
    request.mutable_header()->set_request_id(id);
    try {
      ThrowIfRefused(link.Call(method, request));
    } catch (...) {
      outstanding_->Refused(id);
      throw;
    }
    outstanding_->Accepted(id, asked, Announcing(id, asked, on_done));
  }

  // The same for what fails through its call-back.
  template <typename Request>
  void AskOrFail(EngineLink::Method<Request, v1::RequestReply> method, Request request,
                 const Asked& asked, const ResultCallback& on_done) {
    if (!link_) {
      FailUnattached(asked, on_done);
      return;
    }
    try {
      Ask(method, std::move(request), asked, on_done);
    } catch (const ExSGClientBase&) {
      Fail(asked, on_done);
    }
  }

  std::unique_ptr<SEBaseResult> Take(const SEResultToken& token);

 private:
  EngineLink& Link();
  static void ThrowIfRefused(const v1::RequestReply& reply);
  ResultCallback Announcing(std::uint64_t id, const Asked& asked,
                            const ResultCallback& on_done) const;
  void FailUnattached(const Asked& asked, const ResultCallback& on_done);
  // With the exception being handled.
  void Fail(const Asked& asked, const ResultCallback& on_done);

  const rpc::NetworkSettings settings_;
  const std::filesystem::path spool_directory_;
  const ResultAtEngine::Count at_engine_ = std::make_shared<std::atomic<std::uint32_t>>(0);
  service::Delivery delivery_;
  std::shared_ptr<Outstanding> outstanding_;  // null while detached, as the next
  std::shared_ptr<EngineLink> link_;
};

}  // namespace quarro::remote
