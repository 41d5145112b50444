// The commands that list survey lines and submit them to the engine.
#include <cstdint>
#include <deque>
#include <fstream>
#include <string>

#include "cli/command_handlers.h"
#include "cli/command_processor.h"
#include "cli/conversions.h"
#include "cli/text_file.h"
#include "engine/sg_client_base.h"
#include "slog/slog.h"

namespace quarro {
namespace {

// Positions in the file list, counted from 1, both included.
struct LineRange {
  std::uint32_t start = 0;
  std::uint32_t end = 0;
};

LineRange ParseRange(CommandState& state, const std::string& start, const std::string& end) {
  LineRange range;
  if (!ConvertWord(start, range.start) || !ConvertWord(end, range.end)) {
    Slog log(&state.log);
    log << SlogLevel(4);
    log() << "failed to parse parameters for start/end lines." << endmsg;
    throw CommandProcessor::bad_command();
  }
  return range;
}

void CheckRange(CommandState& state, const LineRange& range) {
  const std::size_t count = state.filelist.size();
  if (1 <= range.start && range.start <= range.end && range.end <= count) {
    return;
  }
  Slog log(&state.log);
  log << SlogLevel(4);
  log() << "start must be less than end, and both in range [1, " << count << "]." << endmsg;
  throw CommandProcessor::bad_command();
}

void EraseRange(CommandState& state, const LineRange& range) {
  const auto begin = state.filelist.begin();
  state.filelist.erase(begin + (range.start - 1), begin + range.end);
}

void SubmitLine(CommandState& state, const std::string& file_name, bool rendezvous) {
  state.pending_lines.Add(state.next_line_id, file_name);
  try {
    state.client->AddLine(file_name, state.next_line_id, rendezvous,
                          state.CallBack(&CommandState::OnLineCompleted));
  } catch (const ExSGClientBase& failure) {
    Slog log(&state.log);
    log << SlogLevel(4);
    log() << "failed to send command to server (" << failure.who() << ")." << endmsg;
    // The entry that goes is that of the line submitted before. The refused line's own stays until
    // the next submission, which has the same id, replaces it.
    std::string discarded;
    state.pending_lines.Take(state.next_line_id - 1, discarded);
    return;
  }
  ++state.next_line_id;
}

}  // namespace

void FilelistCommand(CommandProcessor& processor, WordIterator first, WordIterator /*last*/,
                     std::uint32_t /*word_count*/) {
  CommandState& state = processor.State();
  Slog log(&state.log);
  const std::string& path = *first;
  std::ifstream file;
  if (!OpenTextFile(path, file)) {
    log << SlogLevel(4);
    log() << "can't open \"" << path << "\" for input." << endmsg;
    throw CommandProcessor::bad_command();
  }
  std::deque<std::string> names;
  for (std::string line; std::getline(file, line);) {
    if (!line.empty()) {
      names.push_back(line);
    }
  }
  if (file.bad()) {
    log << SlogLevel(4);
    log() << "reading \"" << path << "\" failed after " << names.size()
          << " filenames; the filelist is unchanged." << endmsg;
    throw CommandProcessor::cmd_failed();
  }
  state.filelist.swap(names);
  log << SlogLevel(1);
  log() << "loaded " << state.filelist.size() << " filenames from \"" << path << "\"." << endmsg;
}

void AddCommand(CommandProcessor& processor, WordIterator first, WordIterator /*last*/,
                std::uint32_t /*word_count*/) {
  CommandState& state = processor.State();
  Slog log(&state.log);
  log << SlogLevel(1);
  log() << "committing line addition command to the server." << endmsg;
  SubmitLine(state, *first, false);
  log << SlogLevel(1);
  log() << "line committed to server for processing." << endmsg;
}

void CommitCommand(CommandProcessor& processor, WordIterator first, WordIterator /*last*/,
                   std::uint32_t word_count) {
  CommandState& state = processor.State();
  Slog log(&state.log);
  const LineRange range = ParseRange(state, first[0], first[1]);
  const bool rendezvous = word_count == 4;
  if (rendezvous && first[2] != "rendezvous") {
    processor.ShowHelp("commit");
    throw CommandProcessor::bad_command();
  }
  CheckRange(state, range);
  log << SlogLevel(1);
  log() << "sending lines to server for execution." << endmsg;
  for (std::uint32_t position = range.start; position <= range.end; ++position) {
    SubmitLine(state, state.PathOf(state.filelist[position - 1]),
               rendezvous && position == range.end);
  }
  EraseRange(state, range);
  log << SlogLevel(1);
  log() << range.end - range.start + 1 << " lines committed to server for processing." << endmsg;
}

void ClearCommand(CommandProcessor& processor, WordIterator first, WordIterator /*last*/,
                  std::uint32_t word_count) {
  CommandState& state = processor.State();
  Slog log(&state.log);
  if (word_count == 1) {
    state.filelist.clear();
    log << SlogLevel(1);
    log() << "all lines removed from file list." << endmsg;
    return;
  }
  if (word_count != 3) {
    processor.ShowHelp("clear");
    throw CommandProcessor::bad_command();
  }
  const LineRange range = ParseRange(state, first[0], first[1]);
  CheckRange(state, range);
  EraseRange(state, range);
  log << SlogLevel(1);
  log() << range.end - range.start + 1 << " lines removed from file list." << endmsg;
}

}  // namespace quarro
