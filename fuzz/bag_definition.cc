// Any bytes as the metadata document that a BAG is made from; a definition that comes of it makes a
// file.
#include <cmath>

#include "bag/bag.h"
#include "fuzz/harness.h"

namespace {

using quarro::fuzz::Require;

constexpr std::uint64_t kLargestFile = 8U << 20U;

void CheckDefinition(const quarro::bagData& definition) {
  Require(definition.rows > 0 && definition.columns > 0, "a grid has rows and columns");
  Require(std::isfinite(definition.row_spacing) && definition.row_spacing > 0 &&
              std::isfinite(definition.column_spacing) && definition.column_spacing > 0,
          "spacings are finite and positive");
  Require(definition.west <= definition.east && definition.south <= definition.north,
          "corners are in order");
}

void MakeFile(quarro::bagData& definition) {
  definition.has_variable_resolution = 1;
  quarro::bagHandle* file = nullptr;
  if (quarro::bagFileCreate("fuzz.bag", &definition, &file) != quarro::kBagSuccess) {
    Require(file == nullptr, "a file that could not be made has no handle");
    return;
  }
  (void)quarro::bagCreateVariableResolutionLayers(file, 1, 1);
  const float elevation = -12.5F;
  (void)quarro::bagWriteRow(file, definition.rows - 1, definition.columns - 1,
                            definition.columns - 1, quarro::kSurfaceElevation, &elevation);
  (void)quarro::bagFileClose(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const quarro::fuzz::ScratchFolder folder;
  static const quarro::fuzz::MemoryFile document;
  quarro::fuzz::LimitFileSize(kLargestFile);
  document.Write({data, size});
  quarro::bagData definition = {};
  const quarro::bagError status =
      quarro::bagInitDefinitionFromFile(&definition, document.path().c_str());
  const char* text = nullptr;
  Require(status == quarro::kBagSuccess || quarro::bagGetErrorString(status, &text) == 0,
          "every failure has a text");
  if (status != quarro::kBagSuccess) return 0;
  CheckDefinition(definition);
  MakeFile(definition);
  quarro::bagFreeDefinition(&definition);
  folder.Empty();
  return 0;
}
