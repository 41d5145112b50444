// The queue of messages from call-backs.
#include "app/message_router.h"

#include <memory>

#include <boost/filesystem.hpp>

#include "slog/slog.h"

namespace quarro {
namespace {

constexpr char kChannel[] = "asynch";
constexpr char kSeparator = ' ';
constexpr char kFileInDirectory[] = "quarro_messages.txt";

std::string FileFor(const std::string& path) {
  return boost::filesystem::is_directory(path)
             ? (boost::filesystem::path(path) / kFileInDirectory).string()
             : path;
}

}  // namespace

MessageRouter::MessageRouter() { Slog(kChannel).SetFilter(SlogLevel(0)); }

void MessageRouter::PostMessage(const std::string& text) {
  const std::lock_guard lock(mutex_);
  if (!to_file_) {
    pending_.push_back(text);
    return;
  }
  Slog log(kChannel);
  log() << text << endmsg;
}

void MessageRouter::FlushMessages() {
  const std::lock_guard lock(mutex_);
  Slog log(kChannel);
  for (std::size_t number = 1; !pending_.empty(); ++number) {
    log << SlogLevel(1);
    log() << "[M" << number << "] " << pending_.front() << endmsg;
    pending_.pop_front();
  }
}

bool MessageRouter::RedirectToFile(const std::string& path, bool append) {
  const std::lock_guard lock(mutex_);
  try {
    Slog log(kChannel);
    log.RemoveDrains();
    log.AddDrain(std::make_shared<SlogFileDrain>(FileFor(path), append, false, kSeparator));
    to_file_ = true;
    while (!pending_.empty()) {
      log() << pending_.front() << endmsg;
      pending_.pop_front();
    }
    return true;
  } catch (...) {
    return false;
  }
}

void MessageRouter::RedirectToConsole() {
  const std::lock_guard lock(mutex_);
  Slog log(kChannel);
  log.RemoveDrains();
  log.AddDrain(SlogCerrDrain::Instance(kSeparator));
  to_file_ = false;
}

bool MessageRouter::Empty() const {
  const std::lock_guard lock(mutex_);
  return pending_.empty();
}

bool MessageRouter::ToFile() const {
  const std::lock_guard lock(mutex_);
  return to_file_;
}

}  // namespace quarro
