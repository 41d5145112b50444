// Messages that call-backs produce while the console is busy with something else.
#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>

namespace quarro {

// Holds messages until the console shows them, or writes them to a file at once. They go to the
// channel "asynch". Any thread may post; the other operations are the console thread's.
class MessageRouter {
 public:
  MessageRouter();
  MessageRouter(const MessageRouter&) = delete;
  MessageRouter& operator=(const MessageRouter&) = delete;

  void PostMessage(const std::string& text);

  // Shows the messages held, oldest first, each led by "[M<n>] " with n from 1.
  void FlushMessages();

  // Sends messages to the file at `path` from now on, those held among them; `append` keeps what
  // the file holds. Of a directory it uses the file quarro_messages.txt. False when the file cannot
  // be written; messages not yet written stay held.
  bool RedirectToFile(const std::string& path, bool append);

  // Holds messages for the console from now on.
  void RedirectToConsole();

  bool Empty() const;   // no message is held
  bool ToFile() const;  // messages go to a file

 private:
  mutable std::mutex mutex_;
  std::deque<std::string> pending_;  // guarded by mutex_
  bool to_file_ = false;             // guarded by mutex_
};

}  // namespace quarro
