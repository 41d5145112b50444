#include "gridding/rpc/session_table.h"

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/random.h>

#include "engine/exceptions.h"
#include "slog/slog.h"

namespace quarro::rpc {

namespace {

constexpr std::chrono::milliseconds kSweepInterval{500};
// How long an ended session is kept for a client that has not yet been told.
constexpr std::chrono::seconds kKeptAfterEnd{5};

std::string RandomId() {
  std::array<unsigned char, 32> bytes{};
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    const ssize_t got = ::getrandom(bytes.data() + filled, bytes.size() - filled, 0);
    if (got < 0 && errno != EINTR) {
      throw ExSGCServerResources("no random numbers: " + std::generic_category().message(errno));
    }
    if (got > 0) filled += static_cast<std::size_t>(got);
  }
  constexpr const char* kDigits = "0123456789abcdef";
  std::string id;
  for (const unsigned char byte : bytes) {
    id += kDigits[byte >> 4U];
    id += kDigits[byte & 15U];
  }
  return id;
}

void Log(int level, const Session& session, const std::string& text) {
  Slog log("server");
  log << SlogLevel(level);
  log() << "session " << session.number() << ": " << text << endmsg;
}

}  // namespace

SessionTable::SessionTable(const NetworkSettings& settings, service::EngineConfig engine)
    : settings_(settings) {
  host_.engine = std::move(engine);
  host_.survey_directories = SurveyDirectories(settings.survey_directories);
  host_.max_queue_length = settings.max_queue_length;
  host_.max_waiting_results = settings.max_waiting_results;
  host_.max_result_bytes = std::uint64_t{settings.max_result_pool_mib} << 20U;
  host_.holder_of = [this](const std::string& grid, std::uint64_t asking) {
    return HolderOf(grid, asking);
  };
  housekeeper_ = std::thread([this] { KeepHouse(); });
}

SessionTable::~SessionTable() {
  EndAll("the engine is shutting down");
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  housekeeper_.join();
  sessions_.clear();
}

SessionTable::Opened SessionTable::Open(const std::string& peer, const std::string& identity) {
  Opened opened;
  std::unique_lock lock(mutex_);
  if (!end_reason_.empty()) throw ExSGClientBase(end_reason_);
  if (sessions_.size() >= settings_.max_sessions) {
    throw ExSGCServerResources("the engine has " + std::to_string(sessions_.size()) +
                               " sessions, as many as MaxSessions of section Network allows");
  }
  opened.id = RandomId();
  opened.session = std::make_shared<Session>(next_number_++, peer, identity, host_);
  sessions_[opened.id] = opened.session;
  lock.unlock();
  Log(2, *opened.session, "opened by the client at " + peer);
  return opened;
}

std::shared_ptr<Session> SessionTable::Find(const std::string& id,
                                            const std::string& identity) const {
  const std::lock_guard lock(mutex_);
  const auto found = sessions_.find(id);
  if (found == sessions_.end() || found->second->identity() != identity) return nullptr;
  return found->second;
}

void SessionTable::Forget(const std::string& id) {
  std::shared_ptr<Session> gone;  // destroyed without the lock
  {
    const std::lock_guard lock(mutex_);
    const auto found = sessions_.find(id);
    if (found == sessions_.end()) return;
    gone = std::move(found->second);
    sessions_.erase(found);
  }
  Log(1, *gone, "is over");
}

std::vector<std::shared_ptr<Session>> SessionTable::All() const {
  std::vector<std::shared_ptr<Session>> all;
  const std::lock_guard lock(mutex_);
  for (const auto& [id, session] : sessions_) all.push_back(session);
  return all;
}

std::string SessionTable::HolderOf(const std::string& grid, std::uint64_t asking) const {
  for (const auto& session : All()) {
    if (session->number() == asking || !session->HasGrid(grid)) continue;
    return "the client at " + session->peer() + WhereaboutsOf(*session);
  }
  return "";
}

// What becomes of a grid whose client is not there.
std::string SessionTable::WhereaboutsOf(const Session& session) const {
  if (session.Ending()) return ", which is gone, while its lines are in work";
  const auto left = session.TimeToComeBack(std::chrono::seconds(settings_.reconnect_seconds));
  if (!left) return "";
  const auto freed_in = std::chrono::ceil<std::chrono::seconds>(*left + kSweepInterval);
  return ", whose connection is lost; the grid is free within " + std::to_string(freed_in.count()) +
         " s" +
         (session.GetLoad().run_queue_length != 0 ? ", once its lines in work are done" : "");
}

void SessionTable::EndAll(const char* reason) {
  {
    const std::lock_guard lock(mutex_);
    end_reason_ = reason;
  }
  for (const auto& session : All()) session->BeginEnd(reason, true);
  for (const auto& session : All()) {
    while (!session->WaitUntilEnded(Session::Clock::now() + std::chrono::seconds(60))) {
    }
  }
}

void SessionTable::KeepHouse() {
  std::unique_lock lock(mutex_);
  while (!changed_.wait_for(lock, kSweepInterval, [this] { return stopping_; })) {
    lock.unlock();
    SweepOnce();
    lock.lock();
  }
}

void SessionTable::SweepOnce() {
  const std::chrono::seconds allowance(settings_.reconnect_seconds);
  for (const auto& session : All()) {
    if (!session->Ending() && session->Abandoned(allowance)) {
      Log(3, *session,
          "its client was away for more than " + std::to_string(settings_.reconnect_seconds) +
              " s: what it asked for is carried out, then its grid is closed");
      session->BeginEnd("the client was away for too long", false);
    }
  }
  std::vector<std::shared_ptr<Session>> gone;  // destroyed without the lock
  {
    const std::lock_guard lock(mutex_);
    for (auto next = sessions_.begin(); next != sessions_.end();) {
      const auto here = next++;
      if (!here->second->Ended() || !here->second->Abandoned(kKeptAfterEnd)) continue;
      gone.push_back(std::move(here->second));
      sessions_.erase(here);
    }
  }
  for (const auto& session : gone) Log(1, *session, "is over");
}

}  // namespace quarro::rpc
