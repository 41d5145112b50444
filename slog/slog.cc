// Channels by name, and the composition of messages.
#include "slog/slog.h"

#include <atomic>
#include <cstdio>
#include <exception>
#include <ios>
#include <locale>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace quarro {
namespace {

constexpr int kDefaultLevel = 1;

// A drain in use by a channel.
struct Outlet {
  explicit Outlet(std::shared_ptr<SlogDrain> the_drain) : drain(std::move(the_drain)) {}

  // Logging never stops the program: a drain that fails is reported once, until it works again.
  void Write(const std::string& channel, int level, const std::string& text) noexcept {
    try {
      drain->Write(channel, level, text);
      failing = false;
    } catch (const std::exception& error) {
      Report(channel, error.what());
    } catch (...) {
      Report(channel, "unknown error");
    }
  }

  void Report(const std::string& channel, const char* reason) noexcept {
    if (failing.exchange(true)) return;
    std::fprintf(stderr, "messages of channel \"%s\" are being lost: %s\n", channel.c_str(),
                 reason);
  }

  const std::shared_ptr<SlogDrain> drain;
  std::atomic<bool> failing = false;
};

}  // namespace

// What all Slogs of one name share. Thread-safe. The lock is not held while a drain writes, so a
// message in the making on another thread may still reach a drain just removed.
class SlogChannel {
 public:
  explicit SlogChannel(std::string name) : name_(std::move(name)) {}

  // The channel of this name, made at its first use and kept to the end of the process.
  static std::shared_ptr<SlogChannel> Of(const std::string& name) {
    struct Registry {
      std::mutex mutex;
      std::map<std::string, std::shared_ptr<SlogChannel>> channels;
    };
    // Never destroyed: objects of static life may log from their destructors.
    static Registry& registry = *new Registry;
    const std::lock_guard lock(registry.mutex);
    std::shared_ptr<SlogChannel>& channel = registry.channels[name];
    if (!channel) channel = std::make_shared<SlogChannel>(name);
    return channel;
  }

  void SetFilter(int level) {
    const std::lock_guard lock(mutex_);
    filter_ = level;
  }

  int Filter() const {
    const std::lock_guard lock(mutex_);
    return filter_;
  }

  void AddDrain(std::shared_ptr<SlogDrain> drain) {
    if (!drain) return;
    const std::lock_guard lock(mutex_);
    for (const auto& outlet : outlets_) {
      if (outlet->drain == drain) return;
    }
    outlets_.push_back(std::make_shared<Outlet>(std::move(drain)));
  }

  void RemoveDrains() {
    std::vector<std::shared_ptr<Outlet>> removed;  // closed after the lock is released
    const std::lock_guard lock(mutex_);
    removed.swap(outlets_);
  }

  void Write(int level, const std::string& text) {
    std::vector<std::shared_ptr<Outlet>> outlets;
    {
      const std::lock_guard lock(mutex_);
      if (level < filter_) return;
      outlets = outlets_;
    }
    if (outlets.empty()) Console().Write(name_, level, text);
    for (const auto& outlet : outlets) outlet->Write(name_, level, text);
  }

 private:
  // Where a channel without drains writes. Never destroyed, like the registry.
  static Outlet& Console() {
    static Outlet& console = *new Outlet(SlogCerrDrain::Instance(' '));
    return console;
  }

  const std::string name_;
  mutable std::mutex mutex_;
  int filter_ = 0;                                // guarded by mutex_
  std::vector<std::shared_ptr<Outlet>> outlets_;  // guarded by mutex_
};

// The text of the message being composed. Numbers come out the same whatever the global locale.
class Slog::MessageStream : public std::ostringstream {
 public:
  explicit MessageStream(std::shared_ptr<SlogChannel> channel) : channel_(std::move(channel)) {
    StartAfresh();
  }

  void SetLevel(int level) { level_ = level; }

  void EndMessage() {
    const std::string text = str();
    const int level = level_;
    StartAfresh();
    channel_->Write(level, text);
  }

 private:
  // Nothing of one message, formats among it, carries over to the next.
  void StartAfresh() {
    level_ = kDefaultLevel;
    str(std::string());
    clear();
    copyfmt(std::ios(nullptr));
    imbue(std::locale::classic());
  }

  const std::shared_ptr<SlogChannel> channel_;
  int level_ = kDefaultLevel;
};

Slog::Slog(const std::string& channel)
    : channel_(SlogChannel::Of(channel)), stream_(std::make_unique<MessageStream>(channel_)) {}

Slog::Slog(Slog* parent)
    : channel_(parent->channel_), stream_(std::make_unique<MessageStream>(channel_)) {}

Slog::~Slog() = default;

Slog& Slog::operator<<(SlogLevel level) {
  stream_->SetLevel(level.value);
  return *this;
}

std::ostream& Slog::operator()() { return *stream_; }

void Slog::SetFilter(SlogLevel level) { channel_->SetFilter(level.value); }

int Slog::Filter() const { return channel_->Filter(); }

void Slog::AddDrain(std::shared_ptr<SlogDrain> drain) { channel_->AddDrain(std::move(drain)); }

void Slog::RemoveDrains() { channel_->RemoveDrains(); }

std::ostream& endmsg(std::ostream& out) {
  if (auto* message = dynamic_cast<Slog::MessageStream*>(&out)) {
    message->EndMessage();
    return out;
  }
  return out << std::endl;
}

}  // namespace quarro
