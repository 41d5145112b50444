// Named log channels with numeric levels, a filter each, and drains that write the messages.
#pragma once

#include <memory>
#include <ostream>
#include <sstream>
#include <string>

namespace quarro {

// A message's level: small integers, lower carries more detail. Errors of the console are 4,
// information is 1.
struct SlogLevel {
  explicit constexpr SlogLevel(int level) : value(level) {}
  int value;
};

// Where a channel's messages go. Write is called with one whole message (it may hold several lines)
// without a newline at its end; implementations are thread-safe and put it out in one piece. What
// Write throws is reported on the standard error, once until the drain works again, and the message
// still goes to the channel's other drains.
class SlogDrain {
 public:
  virtual ~SlogDrain() = default;
  virtual void Write(const std::string& channel, int level, const std::string& text) = 0;
};

// Writes to a file.
class SlogFileDrain : public SlogDrain {
 public:
  // Opens `path` at once, and throws ExTarn naming it when it cannot be written. With `append` what
  // the file holds is kept. With `stamped` each message is led by the UTC time, the level and the
  // channel, parted by `separator`; without it the text stands alone. Each message is flushed.
  SlogFileDrain(const std::string& path, bool append, bool stamped, char separator);
  ~SlogFileDrain() override;
  void Write(const std::string& channel, int level, const std::string& text) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Writes the text alone to the standard error stream. One object serves the program.
class SlogCerrDrain : public SlogDrain {
 public:
  // `separator` is what would part the fields of a stamped message; the console shows none.
  static std::shared_ptr<SlogDrain> Instance(char separator);
  void Write(const std::string& channel, int level, const std::string& text) override;
};

class SlogChannel;

// A composer of messages on one channel. Several objects of one name address the same channel; a
// channel without drains writes to the standard error. One object belongs to one thread; the
// channel behind it is thread-safe. A message without a level has level 1.
//
//   Slog log("comproc");
//   log << SlogLevel(4);
//   log() << "could not open \"" << path << "\" for input." << endmsg;
class Slog {
 public:
  explicit Slog(const std::string& channel);
  // A child: composes its own messages on the parent's channel.
  explicit Slog(Slog* parent);
  Slog(const Slog&) = delete;
  Slog& operator=(const Slog&) = delete;
  ~Slog();

  // Selects the level of the message being composed; it falls back to 1 after each message.
  Slog& operator<<(SlogLevel level);

  // The stream that takes the text of the message being composed. endmsg ends it; text that no
  // endmsg ends is dropped with the object. Numbers are written in the classic locale, and formats
  // set on the stream hold to the end of the message.
  std::ostream& operator()();

  // Messages whose level, as it stands at their end, is below the filter's are dropped. A channel's
  // filter starts at 0.
  void SetFilter(SlogLevel level);
  int Filter() const;
  // A drain that the channel has already is not added again.
  void AddDrain(std::shared_ptr<SlogDrain> drain);
  // A message that another thread is ending meanwhile may still reach a drain removed.
  void RemoveDrains();

 private:
  class MessageStream;
  friend std::ostream& endmsg(std::ostream& out);

  std::shared_ptr<SlogChannel> channel_;
  std::unique_ptr<MessageStream> stream_;
};

// Ends a message: hands the text composed so far to the channel's drains as one message. On any
// other stream than a Slog's it writes an end of line.
std::ostream& endmsg(std::ostream& out);

}  // namespace quarro
