// The functions of the interface: each checks its pointers, and turns failures into statuses.

#include "bag/bag.h"

#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "bag/failure.h"
#include "bag/file.h"
#include "bag/metadata.h"

namespace quarro {

struct bagHandle {
  bagHandle(const char* path, const bagData& definition) : file(path, definition) {}

  bag::File file;
  bagError first_failure = kBagSuccess;
};

namespace {

template <typename Action>
bagError statusOf(const Action& action) noexcept {
  try {
    action();
    return kBagSuccess;
  } catch (const bag::Failure& failure) {
    return failure.status;
  } catch (const std::bad_alloc&) {
    return kBagOutOfMemory;
  } catch (...) {
    return kBagInternal;
  }
}

template <typename Action>
bagError rememberedStatusOf(bagHandle& file, const Action& action) noexcept {
  const bagError status = statusOf(action);
  if (file.first_failure == kBagSuccess) file.first_failure = status;
  return status;
}

std::unique_ptr<char[]> copyOf(const std::string& text) {
  auto copy = std::make_unique<char[]>(text.size() + 1);
  std::memcpy(copy.get(), text.data(), text.size());
  return copy;
}

bagError update(bagHandle* file, int surface, bool mandatory) {
  if (file == nullptr) return kBagBadArgument;
  return rememberedStatusOf(*file, [&] { file->file.update(surface, mandatory); });
}

}  // namespace

bagError bagInitDefinitionFromFile(bagData* definition, const char* metadata_path) {
  if (definition == nullptr || metadata_path == nullptr) return kBagBadArgument;
  return statusOf([&] {
    const bag::Metadata metadata = bag::readMetadata(metadata_path);
    auto text = copyOf(metadata.text);
    auto horizontal_wkt = copyOf(metadata.grid.horizontal_wkt);
    const bag::GridPlace& grid = metadata.grid;
    *definition = {.metadata = text.release(),
                   .metadata_size = metadata.text.size(),
                   .horizontal_wkt = horizontal_wkt.release(),
                   .rows = grid.rows,
                   .columns = grid.columns,
                   .row_spacing = grid.row_spacing,
                   .column_spacing = grid.column_spacing,
                   .west = grid.west,
                   .south = grid.south,
                   .east = grid.east,
                   .north = grid.north,
                   .west_longitude = grid.west_longitude,
                   .south_latitude = grid.south_latitude,
                   .east_longitude = grid.east_longitude,
                   .north_latitude = grid.north_latitude,
                   .min_elevation_m = kBagNullValue,
                   .max_elevation_m = kBagNullValue,
                   .min_uncertainty_m = kBagNullValue,
                   .max_uncertainty_m = kBagNullValue,
                   .has_variable_resolution = 0};
  });
}

void bagFreeDefinition(bagData* definition) {
  if (definition == nullptr) return;
  delete[] std::exchange(definition->metadata, nullptr);
  delete[] std::exchange(definition->horizontal_wkt, nullptr);
  definition->metadata_size = 0;
}

bagError bagFileCreate(const char* path, const bagData* definition, bagHandle** file) {
  if (file == nullptr) return kBagBadArgument;
  *file = nullptr;
  if (path == nullptr || definition == nullptr || definition->metadata == nullptr) {
    return kBagBadArgument;
  }
  return statusOf([&] { *file = std::make_unique<bagHandle>(path, *definition).release(); });
}

bagError bagCreateVariableResolutionLayers(bagHandle* file, std::uint64_t refined_nodes,
                                           int with_node_groups) {
  if (file == nullptr) return kBagBadArgument;
  return rememberedStatusOf(*file, [&] {
    file->file.createVariableResolutionLayers(refined_nodes, with_node_groups != 0);
  });
}

bagError bagWriteRow(bagHandle* file, std::uint32_t row, std::uint32_t first_column,
                     std::uint32_t last_column, int surface, const void* records) {
  if (file == nullptr) return kBagBadArgument;
  return rememberedStatusOf(*file, [&] {
    if (records == nullptr) bag::fail(kBagBadArgument);
    file->file.write(row, first_column, last_column, surface, records);
  });
}

bagError bagUpdateSurface(bagHandle* file, int surface) { return update(file, surface, true); }

bagError bagUpdateOptSurface(bagHandle* file, int surface) { return update(file, surface, false); }

bagError bagFileClose(bagHandle* file) {
  if (file == nullptr) return kBagBadArgument;
  const std::unique_ptr<bagHandle> owned(file);
  rememberedStatusOf(*file, [&] { file->file.close(); });
  const bagError status = file->first_failure;
  if (status != kBagSuccess) statusOf([&] { file->file.setAsideAsIncomplete(); });
  return status;
}

}  // namespace quarro
