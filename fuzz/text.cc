// Any bytes as a survey line of text: the first byte says whether x and y are metres or degrees.
#include "fuzz/harness.h"
#include "fuzz/survey_line.h"
#include "gridding/survey/text_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const quarro::fuzz::MemoryFile file;
  const bool projected = data[0] == 'm';
  file.Write({data + 1, size - 1});
  try {
    quarro::survey::TextReader reader(file.path(), projected);
    quarro::fuzz::ReadAndPlace(reader);
  } catch (const quarro::survey::LineError&) {
    return 0;  // says why the file is no line
  }
  return 0;
}
