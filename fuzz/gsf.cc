// Any bytes as a survey line in the Generic Sensor Format.
#include "fuzz/harness.h"
#include "fuzz/survey_line.h"
#include "gridding/survey/gsf_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const quarro::fuzz::MemoryFile file;
  file.Write({data, size});
  try {
    quarro::survey::GsfReader reader(file.path());
    quarro::fuzz::ReadAndPlace(reader);
  } catch (const quarro::survey::LineError&) {
    return 0;  // says why the file is no line
  }
  return 0;
}
