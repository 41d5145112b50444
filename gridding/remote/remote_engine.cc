#include "gridding/remote/remote_engine.h"

#include <chrono>
#include <exception>
#include <sstream>
#include <system_error>

#include <unistd.h>

#include "engine/exceptions.h"
#include "gridding/rpc/message_forms.h"
#include "gridding/rpc/peer.h"
#include "gridding/rpc/protocol.h"
#include "gridding/service/unattached.h"

namespace quarro::remote {

namespace {

// Large results go where the engine in this process would put them, if that is a folder here
// that may be written to.
std::filesystem::path SpoolDirectory(const MParams& params) {
  std::filesystem::path directory = params.Lookup("Engine", "WorkingDirectory");
  if (directory.empty()) directory = ".";
  std::error_code error;
  const bool is_directory = std::filesystem::is_directory(directory, error);
  if (is_directory && ::access(directory.c_str(), W_OK) == 0) return directory;
  return std::filesystem::temp_directory_path();
}

std::string AddressOf(const QuarroSpec& spec) {
  const auto octet = [&](unsigned shift) {
    return std::to_string((spec.ipv4_address >> shift) & 0xffU);
  };
  return octet(24) + '.' + octet(16) + '.' + octet(8) + '.' + octet(0) + ':' +
         std::to_string(spec.port);
}

}  // namespace

RemoteEngine::RemoteEngine(const MParams& params)
    : settings_(rpc::ReadNetworkSettings(params)), spool_directory_(SpoolDirectory(params)) {}

// It throws when it is destroyed by one of its own call-backs, which is a mistake of the caller.
// NOLINTNEXTLINE(bugprone-exception-escape)
RemoteEngine::~RemoteEngine() {
  if (link_) Detach();
}

void RemoteEngine::Attach(const QuarroSpec& spec) {
  if (spec.protocol_version != rpc::kProtocolVersion) {
    throw ExSGClientBase(rpc::VersionMismatch(rpc::kProtocolVersion, spec.protocol_version));
  }
  std::shared_ptr<EngineLink> link;
  try {
    link = std::make_shared<EngineLink>(settings_, AddressOf(spec), spool_directory_);
  } catch (const ExSGClientBase& failure) {
    std::ostringstream reason;
    reason << "the engine at " << spec << ": " << failure.who();
    throw ExSGClientBase(reason.str());
  }
  if (link_) {
    try {
      Detach();
    } catch (...) {
      link->Close(false);
      throw;
    }
  }
  link_ = link;
  outstanding_ = std::make_shared<Outstanding>(
      delivery_,
      [weak = std::weak_ptr<EngineLink>(link), count = at_engine_](std::uint32_t result) {
        return std::make_unique<ResultAtEngine>(weak.lock(), result, count);
      });
  link_->Start(outstanding_);
}

void RemoteEngine::Detach() {
  Link();
  if (delivery_.OnCallbackThread()) {
    throw ExSGClientBase("an engine cannot be detached by a call-back, which it would wait for");
  }
  outstanding_->WaitForResults();
  outstanding_->WaitForAll(std::chrono::seconds(settings_.detach_seconds));
  const bool work_goes_on =
      outstanding_->LetGo("the engine was detached meanwhile, and goes on by itself");
  delivery_.WaitForAll();
  link_->Close(!work_goes_on);
  link_.reset();
  outstanding_.reset();
}

bool RemoteEngine::SetLogLevel(std::uint32_t level) {
  if (!link_) return false;
  v1::SetLogLevelRequest request;
  request.set_session(link_->session());
  request.set_level(level);
  try {
    return link_->Call(&v1::Engine::Stub::SetLogLevel, request).set();
  } catch (const ExSGClientBase&) {
    return false;
  }
}

std::unique_ptr<SEBaseResult> RemoteEngine::Take(const SEResultToken& token) {
  std::unique_ptr<SEBaseResult> result = delivery_.pool().Take(token.uid);
  if (auto* at_engine = dynamic_cast<ResultAtEngine*>(result.get())) {
    return at_engine->Fetch();
  }
  if (auto* statistics = dynamic_cast<ResultServStats*>(result.get())) {
    // Short results wait on this side, which the engine cannot count. The two numbers are not of
    // one moment.
    const std::size_t at_engine = at_engine_->load();
    const std::size_t waiting = delivery_.pool().size();
    if (waiting > at_engine) {
      statistics->results_waiting += static_cast<std::uint32_t>(waiting - at_engine);
    }
  }
  return result;
}

EngineLink& RemoteEngine::Link() {
  if (!link_) throw ExSGClientBase(service::kNotAttached);
  return *link_;
}

void RemoteEngine::ThrowIfRefused(const v1::RequestReply& reply) {
  if (reply.has_refused()) std::rethrow_exception(rpc::FromMessage(reply.refused()));
}

// The engine waits for the end of the call-backs of results to be fetched.
ResultCallback RemoteEngine::Announcing(std::uint64_t id, const Asked& asked,
                                        const ResultCallback& on_done) const {
  if (!service::IsGridResult(asked.kind)) return on_done;
  return [link = link_, id, on_done](const SEResultToken& token) {
    struct Done {
      EngineLink& link;
      std::uint64_t id;
      ~Done() { link.AnnouncementDone(id); }
    };
    const Done done{*link, id};
    if (on_done) on_done(token);
  };
}

void RemoteEngine::FailUnattached(const Asked& asked, const ResultCallback& on_done) {
  service::FailUnattached(delivery_, asked.kind, on_done);
}

void RemoteEngine::Fail(const Asked& asked, const ResultCallback& on_done) {
  const auto request = delivery_.Accept(on_done, asked.kind, asked.order, asked.result_number);
  delivery_.Fail(request, std::current_exception());
}

}  // namespace quarro::remote
