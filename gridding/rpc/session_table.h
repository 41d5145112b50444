// The sessions of a server.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "gridding/rpc/network_settings.h"
#include "gridding/rpc/session.h"

namespace quarro::rpc {

// Thread-safe. A thread of its own ends the sessions whose clients stay away for longer than
// ReconnectSeconds, and forgets those that have ended.
class SessionTable {
 public:
  // Throws ExSGClientBase for settings that do not serve.
  SessionTable(const NetworkSettings& settings, service::EngineConfig engine);
  // Ends all sessions, at once.
  ~SessionTable();
  SessionTable(const SessionTable&) = delete;
  SessionTable& operator=(const SessionTable&) = delete;

  struct Opened {
    std::string id;  // 256 random bits
    std::shared_ptr<Session> session;
  };
  // Throws ExSGCServerResources when there are as many as there may be.
  Opened Open(const std::string& peer, const std::string& identity);
  // Null for an id that names no session, or one of another identity.
  std::shared_ptr<Session> Find(const std::string& id, const std::string& identity) const;

  // Forgets a session that has ended; its stream of events goes on to its end.
  void Forget(const std::string& id);

  // Takes no more sessions, and ends those that are, at once; waits until they have ended.
  void EndAll(const char* reason);  // a literal

  std::vector<std::shared_ptr<Session>> All() const;
  const SessionHost& host() const { return host_; }

 private:
  std::string HolderOf(const std::string& grid, std::uint64_t asking) const;
  std::string WhereaboutsOf(const Session& session) const;
  void KeepHouse();
  void SweepOnce();

  const NetworkSettings settings_;
  SessionHost host_;
  mutable std::mutex mutex_;  // guards all below but the thread
  std::condition_variable changed_;
  std::map<std::string, std::shared_ptr<Session>> sessions_;
  std::uint64_t next_number_ = 1;
  std::string end_reason_;  // not empty: no more sessions
  bool stopping_ = false;
  std::thread housekeeper_;
};

}  // namespace quarro::rpc
