// The connection to one engine: a session there, kept through short losses.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include <grpcpp/grpcpp.h>

#include "engine/results.h"
#include "gridding/remote/outstanding.h"
#include "gridding/rpc/network_settings.h"
#include "gridding/rpc/quarro_v1.grpc.pb.h"

namespace quarro::remote {

// Thread-safe, but Close. A thread of its own reads the session's events: it hands completions to
// the outstanding requests and the engine's messages to the channel "engine". A connection that
// breaks is made again for ReconnectSeconds; then the engine is lost, and with it all that is
// outstanding.
class EngineLink : public std::enable_shared_from_this<EngineLink> {
 public:
  // Opens a session at `address` ("1.2.3.4:47601"). Large results go to files in `spool_directory`.
  // Throws ExSGClientBase when there is no engine, or it refuses.
  EngineLink(const rpc::NetworkSettings& settings, std::string address,
             std::filesystem::path spool_directory);
  // Closed before.
  ~EngineLink();
  EngineLink(const EngineLink&) = delete;
  EngineLink& operator=(const EngineLink&) = delete;

  // Begins to read events. Once.
  void Start(std::shared_ptr<Outstanding> outstanding);
  // Ends the session; with `wait` once its grid is closed, if that takes no more than some seconds.
  // A session that was lost with its connection is ended too if the engine is reached within
  // seconds, so that it does not keep its grid from who attaches next. No event is dealt with once
  // it returned. Not while requests are made.
  void Close(bool wait);

  const std::string& session() const { return session_; }

  template <typename Request, typename Reply>
  using Method = grpc::Status (v1::Engine::Stub::*)(grpc::ClientContext*, const Request&, Reply*);

  // Makes a call, again and again while the connection is being made again. Throws ExSGClientBase
  // once the engine is lost, and for what the engine's side of the protocol refuses.
  template <typename Request, typename Reply>
  Reply Call(Method<Request, Reply> method, const Request& request) {
    Reply reply;
    CallAgainAndAgain([&](grpc::ClientContext& context) {
      return (stub_.get()->*method)(&context, request, &reply);
    });
    return reply;
  }

  // The result in full, which the engine then forgets. Throws its failure, or as Call does.
  std::unique_ptr<SEBaseResult> Fetch(std::uint32_t result);
  // Tells the engine, without minding whether it hears.
  void AnnouncementDone(std::uint64_t request_id);

 private:
  using Attempt = std::function<grpc::Status(grpc::ClientContext& context)>;
  // A call that can be cancelled from elsewhere.
  class ActiveCall {
   public:
    explicit ActiveCall(EngineLink& link) : link_(link) {
      const std::lock_guard lock(link_.mutex_);
      link_.active_.insert(&context);
      if (link_.lost_) context.TryCancel();
    }
    ~ActiveCall() {
      const std::lock_guard lock(link_.mutex_);
      link_.active_.erase(&context);
    }
    ActiveCall(const ActiveCall&) = delete;
    ActiveCall& operator=(const ActiveCall&) = delete;

    grpc::ClientContext context;

   private:
    EngineLink& link_;
  };

  void OpenSession();
  void CallAgainAndAgain(const Attempt& attempt);
  // True when the call is to be made again; throws when that is of no use.
  bool IsWorthAnother(const grpc::Status& status);
  std::unique_ptr<SEBaseResult> FetchOnce(grpc::ClientContext& context, std::uint32_t result,
                                          grpc::Status& status);
  void Release(std::uint32_t result);
  void ReadEvents();
  grpc::Status ReadStream(bool& was_connected);
  void Take(const v1::Event& event);
  void AcknowledgeNowAndThen();
  bool WaitForConnection(std::chrono::steady_clock::time_point until);
  // True when the engine tells that the session is over and its grid closed.
  bool EndSession(bool wait, bool was_lost);
  // What becomes of the session at the engine.
  enum class Session : std::uint8_t { kLives, kOver };
  void Lose(const std::string& reason, Session session);
  void ThrowIfLost();
  bool Pause(std::chrono::milliseconds time);

  const rpc::NetworkSettings settings_;
  const std::string address_;
  const std::filesystem::path spool_directory_;
  std::shared_ptr<grpc::Channel> channel_;
  std::unique_ptr<v1::Engine::Stub> stub_;
  std::string session_;
  std::shared_ptr<Outstanding> outstanding_;  // constant after Start

  // Of the reading thread.
  std::uint64_t last_sequence_ = 0;
  std::uint64_t acknowledged_ = 0;
  bool session_ended_ = false;

  std::mutex mutex_;  // guards all below but the thread
  std::condition_variable changed_;
  std::set<grpc::ClientContext*> active_;
  std::optional<std::string> lost_;  // the reason
  bool session_over_ = false;        // at the engine, which said so
  bool closing_ = false;
  bool reading_ = false;
  std::thread reader_;
};

// Stands in the pool for a result that waits at the engine. `count` is that of all such. Belongs to
// the thread that takes it out of the pool, as what was taken does.
class ResultAtEngine : public SEBaseResult {
 public:
  using Count = std::shared_ptr<std::atomic<std::uint32_t>>;
  ResultAtEngine(std::shared_ptr<EngineLink> link, std::uint32_t result, Count count)
      : link_(std::move(link)), result_(result), count_(std::move(count)) {
    ++*count_;
  }
  ~ResultAtEngine() override { LeavePool(); }
  ResultAtEngine(const ResultAtEngine&) = delete;
  ResultAtEngine& operator=(const ResultAtEngine&) = delete;
  // It is no longer one of those that wait, though the fetch may take long.
  std::unique_ptr<SEBaseResult> Fetch() {
    LeavePool();
    return link_->Fetch(result_);
  }

 private:
  void LeavePool() {
    if (count_) --*count_;
    count_.reset();
  }

  const std::shared_ptr<EngineLink> link_;
  const std::uint32_t result_;
  Count count_;  // null once it has left the pool
};

}  // namespace quarro::remote
