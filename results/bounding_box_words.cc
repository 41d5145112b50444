// Words to bounding boxes.
#include "results/bounding_box_words.h"

#include "cli/command_processor.h"
#include "cli/conversions.h"
#include "results/log_line.h"
#include "support/exceptions.h"

namespace quarro {

namespace {

double NextNumber(CommandState& state, WordIterator& word) {
  double number = 0.0;
  if (!ConvertWord(*word, number)) {
    LogLine(state, kError, "failed to covert parameters for bounding box.");
    throw CommandProcessor::bad_command();
  }
  ++word;
  return number;
}

SGBoundingBox MakeBox(CommandState& state, double west, double south, double east, double north) {
  try {
    return {west, south, east, north};
  } catch (const ExSGClientBase&) {
    LogLine(state, kError, "bounding box is not valid.");
    throw CommandProcessor::bad_command();
  }
}

}  // namespace

SGBoundingBox ParseBoundingBox(CommandState& state, WordIterator& word, BoxForm form) {
  const double first = NextNumber(state, word);
  const double second = NextNumber(state, word);
  const double third = NextNumber(state, word);
  if (form == BoxForm::kCircle) {
    return MakeBox(state, first - third, second - third, first + third, second + third);
  }
  const double fourth = NextNumber(state, word);
  return MakeBox(state, first, second, third, fourth);
}

}  // namespace quarro
