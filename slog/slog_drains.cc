// The drains, on spdlog's sinks.
#include <cerrno>
#include <memory>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <unistd.h>

#include "slog/slog.h"
#include "support/exceptions.h"

namespace quarro {
namespace {

std::string CannotWrite(const std::string& path, const std::string& reason) {
  return "log file \"" + path + "\" cannot be written: " + reason + ".";
}

// Holds the file open for writing while the sink opens it. The sink alone would make missing
// folders for a mistyped path, and retry a failure for a while.
class WritableFile {
 public:
  explicit WritableFile(const std::string& path)
      : descriptor_(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666)) {
    if (descriptor_ < 0) {
      throw ExTarn(CannotWrite(path, std::generic_category().message(errno)));
    }
  }
  WritableFile(const WritableFile&) = delete;
  WritableFile& operator=(const WritableFile&) = delete;
  ~WritableFile() { ::close(descriptor_); }

 private:
  int descriptor_;
};

std::unique_ptr<spdlog::formatter> Formatter(const std::string& pattern) {
  return std::make_unique<spdlog::pattern_formatter>(pattern, spdlog::pattern_time_type::utc, "\n");
}

std::unique_ptr<spdlog::sinks::sink> OpenFileSink(const std::string& path, bool append) {
  const WritableFile writable(path);
  try {
    return std::make_unique<spdlog::sinks::basic_file_sink_mt>(path, !append);
  } catch (const spdlog::spdlog_ex& error) {
    throw ExTarn(CannotWrite(path, error.what()));
  }
}

// One line, or more where the text holds them, in one call to the sink, which locks for it.
void WriteWhole(spdlog::sinks::sink& sink, const std::string& text) {
  sink.log(spdlog::details::log_msg(spdlog::string_view_t(), spdlog::level::info, text));
}

}  // namespace

// Constant after construction; the sink is thread-safe.
struct SlogFileDrain::Impl {
  std::unique_ptr<spdlog::sinks::sink> sink;
  bool stamped;
  char separator;
};

SlogFileDrain::SlogFileDrain(const std::string& path, bool append, bool stamped, char separator)
    : impl_(new Impl{OpenFileSink(path, append), stamped, separator}) {
  impl_->sink->set_formatter(Formatter(stamped ? "%Y-%m-%dT%H:%M:%S.%fZ%v" : "%v"));
}

SlogFileDrain::~SlogFileDrain() = default;

void SlogFileDrain::Write(const std::string& channel, int level, const std::string& text) {
  if (impl_->stamped) {
    const char separator = impl_->separator;
    WriteWhole(*impl_->sink,
               separator + std::to_string(level) + separator + channel + separator + text);
  } else {
    WriteWhole(*impl_->sink, text);
  }
  impl_->sink->flush();
}

std::shared_ptr<SlogDrain> SlogCerrDrain::Instance(char /*separator*/) {
  // Never destroyed: objects of static life may log from their destructors.
  static const auto& instance = *new std::shared_ptr<SlogDrain>(std::make_shared<SlogCerrDrain>());
  return instance;
}

void SlogCerrDrain::Write(const std::string& /*channel*/, int /*level*/, const std::string& text) {
  static spdlog::sinks::sink& sink = [&]() -> spdlog::sinks::sink& {
    auto* console = new spdlog::sinks::stderr_sink_mt;
    console->set_formatter(Formatter("%v"));
    return *console;
  }();
  WriteWhole(sink, text);
}

}  // namespace quarro
