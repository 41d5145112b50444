// A BAG file that is being written: its HDF5 objects and its layers.

#pragma once

#include <cstdint>
#include <filesystem>
#include <map>

#include "bag/disk_file.h"
#include "bag/hdf5.h"
#include "bag/layer.h"

namespace quarro::bag {

// Every member throws Failure. Not for several threads at once.
class File {
 public:
  // Creates the file, overwriting one that exists.
  File(const char* path, const bagData& definition);
  ~File();
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  void createVariableResolutionLayers(std::uint64_t refined_nodes, bool with_node_groups);
  void write(std::uint32_t row, std::uint32_t first_column, std::uint32_t last_column, int surface,
             const void* records);
  void update(int surface, bool mandatory);

  // Writes what is in memory and closes the file, whether or not that fails.
  void close();

  // Gives a closed file a name that nobody takes for a whole BAG.
  void setAsideAsIncomplete() const;

 private:
  void createRoot(const Hdf5Lock& lock);
  void createMetadata(const Hdf5Lock& lock, const bagData& definition);
  void createLayer(const Hdf5Lock& lock, bagSurface surface, LayerSize size);
  void createRefinementMetadata(const Hdf5Lock& lock);
  Layer& layer(int surface);
  // Throws Failure{kBagWriteFailed} after a failed write.
  void checkDisk() const;
  // False when a part of the file did not reach the disc.
  bool release(const Hdf5Lock& lock);

  std::filesystem::path path_;
  LayerSize grid_;
  double row_spacing_;
  double column_spacing_;
  bool has_variable_resolution_;
  DiskState disk_;
  Hdf5Id file_;
  Hdf5Id root_;
  std::map<int, Layer> layers_;
};

}  // namespace quarro::bag
