// The handlers of all commands. Each is defined in the folder that its command belongs to.
//
// A handler takes the words after the command word and the count of words on the line, the command
// word included, which is within the limits of the command table. It runs on the console thread,
// and throws CommandProcessor's bad_command, cmd_failed, not_attached, no_grid or cli_done after
// having said why.
#pragma once

#include <cstdint>

#include "cli/command_table.h"

namespace quarro {

class CommandProcessor;

// cli/
void HelpCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                 std::uint32_t word_count);
void HistoryCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                    std::uint32_t word_count);
void SourceCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                   std::uint32_t word_count);
void ExitCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                 std::uint32_t word_count);

// engine/
void BroadcastCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                      std::uint32_t word_count);
void AttachCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                   std::uint32_t word_count);
void DetachCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                   std::uint32_t word_count);
void GridCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                 std::uint32_t word_count);
void DropCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                 std::uint32_t word_count);
void SynchCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                  std::uint32_t word_count);
void RefineCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                   std::uint32_t word_count);
void FilelistCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                     std::uint32_t word_count);
void AddCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                std::uint32_t word_count);
void CommitCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                   std::uint32_t word_count);
void ClearCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                  std::uint32_t word_count);

// results/
void GetCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                std::uint32_t word_count);
void SetCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                std::uint32_t word_count);
void ShowCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                 std::uint32_t word_count);
void DebugCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                  std::uint32_t word_count);
void PurgeCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                  std::uint32_t word_count);
void IntervalCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                     std::uint32_t word_count);

// diag/
void StressTestCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                       std::uint32_t word_count);

// The extended help of grid (engine/) and of get, set and show (results/), logged at level 1.
void GridDetailHelp(CommandProcessor& processor);
void GetDetailHelp(CommandProcessor& processor);
void SetDetailHelp(CommandProcessor& processor);
void ShowDetailHelp(CommandProcessor& processor);

}  // namespace quarro
