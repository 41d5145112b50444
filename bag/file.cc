// Creates the HDF5 objects of a BAG and passes records on to its layers.

#include "bag/file.h"

#include <array>
#include <cstddef>
#include <exception>
#include <initializer_list>
#include <system_error>
#include <utility>

namespace quarro::bag {
namespace {

constexpr char kRootGroup[] = "BAG_root";
// The version that knows variable resolution; a null-terminated string of 32 bytes in the file.
constexpr std::array<char, 32> kVersion = {"1.6.2"};
constexpr hsize_t kMetadataChunk = 4096;
constexpr hsize_t kTrackingListChunk = 1024;

struct Member {
  const char* name;
  hid_t type;
};

Hdf5Id compoundType(const std::initializer_list<Member>& members) {
  std::size_t size = 0;
  for (const Member& member : members) size += H5Tget_size(member.type);
  Hdf5Id type(H5Tcreate(H5T_COMPOUND, size), H5Tclose, kBagCreateFailed);
  std::size_t offset = 0;
  for (const Member& member : members) {
    check(H5Tinsert(type.get(), member.name, offset, member.type), kBagCreateFailed);
    offset += H5Tget_size(member.type);
  }
  return type;
}

Hdf5Id stringType(std::size_t size) {
  Hdf5Id type(H5Tcopy(H5T_C_S1), H5Tclose, kBagCreateFailed);
  check(H5Tset_size(type.get(), size), kBagCreateFailed);
  check(H5Tset_strpad(type.get(), H5T_STR_NULLTERM), kBagCreateFailed);
  return type;
}

// A list that later tools may lengthen.
Hdf5Id createList(hid_t group, const char* name, hid_t type, hsize_t length, hsize_t chunk) {
  const hsize_t unlimited = H5S_UNLIMITED;
  const Hdf5Id space(H5Screate_simple(1, &length, &unlimited), H5Sclose, kBagCreateFailed);
  const Hdf5Id creation(H5Pcreate(H5P_DATASET_CREATE), H5Pclose, kBagCreateFailed);
  check(H5Pset_chunk(creation.get(), 1, &chunk), kBagCreateFailed);
  check(H5Pset_obj_track_times(creation.get(), false), kBagCreateFailed);
  return {H5Dcreate2(group, name, type, space.get(), H5P_DEFAULT, creation.get(), H5P_DEFAULT),
          H5Dclose, kBagCreateFailed};
}

void createScalarAttribute(hid_t object, const char* name, hid_t type, const void* value) {
  const Hdf5Id space(H5Screate(H5S_SCALAR), H5Sclose, kBagCreateFailed);
  const Hdf5Id attribute(H5Acreate2(object, name, type, space.get(), H5P_DEFAULT, H5P_DEFAULT),
                         H5Aclose, kBagCreateFailed);
  check(H5Awrite(attribute.get(), type, value), kBagCreateFailed);
}

// Readers expect the lists of edited nodes even where nothing was edited.
void createTrackingList(hid_t group, const char* name, const Hdf5Id& type,
                        const char* length_attribute) {
  const Hdf5Id list = createList(group, name, type.get(), 0, kTrackingListChunk);
  const std::uint32_t length = 0;
  createScalarAttribute(list.get(), length_attribute, H5T_STD_U32LE, &length);
}

// HDF5 would overwrite, and a failure rename, whatever stands under the name.
void checkReplaceable(const std::filesystem::path& path) {
  std::error_code ignored;
  const auto folder = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
  if (!std::filesystem::is_directory(folder, ignored)) fail(kBagNoSuchFolder);
  const auto status = std::filesystem::status(path, ignored);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    fail(kBagNotRegularFile);
  }
}

}  // namespace

File::File(const char* path, const bagData& definition)
    : path_(path),
      grid_{.rows = definition.rows, .columns = definition.columns},
      row_spacing_(definition.row_spacing),
      column_spacing_(definition.column_spacing),
      has_variable_resolution_(definition.has_variable_resolution != 0) {
  checkReplaceable(path_);
  const Hdf5Lock lock;
  try {
    file_ = createDiskFile(lock, path_, &disk_);
    createRoot(lock);
    createMetadata(lock, definition);
    createLayer(lock, kSurfaceElevation, grid_);
    createLayer(lock, kSurfaceUncertainty, grid_);
    layer(kSurfaceElevation)
        .storeExtreme(lock, 0, definition.min_elevation_m, definition.max_elevation_m);
    layer(kSurfaceUncertainty)
        .storeExtreme(lock, 0, definition.min_uncertainty_m, definition.max_uncertainty_m);
    // A disc without space for this much is told before the work is done.
    check(H5Fflush(file_.get(), H5F_SCOPE_LOCAL), kBagCreateFailed);
    if (disk_.failed) fail(kBagCreateFailed);
  } catch (...) {
    const bool begun = file_.get() >= 0;  // else what has the name is not ours
    release(lock);
    if (begun) setAsideAsIncomplete();
    throw;
  }
}

File::~File() {
  const Hdf5Lock lock;
  release(lock);
}

void File::createRoot(const Hdf5Lock&) {
  root_ = Hdf5Id(H5Gcreate2(file_.get(), kRootGroup, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT),
                 H5Gclose, kBagCreateFailed);
  const Hdf5Id version = stringType(kVersion.size());
  createScalarAttribute(root_.get(), "Bag Version", version.get(), kVersion.data());
  createTrackingList(root_.get(), "tracking_list",
                     compoundType({{"row", H5T_STD_U32LE},
                                   {"col", H5T_STD_U32LE},
                                   {"depth", H5T_IEEE_F32LE},
                                   {"uncertainty", H5T_IEEE_F32LE},
                                   {"track_code", H5T_STD_U8LE},
                                   {"list_series", H5T_STD_I16LE}}),
                     "Tracking List Length");
}

void File::createMetadata(const Hdf5Lock&, const bagData& definition) {
  const Hdf5Id character = stringType(1);
  const Hdf5Id metadata = createList(root_.get(), "metadata", character.get(),
                                     definition.metadata_size, kMetadataChunk);
  check(
      H5Dwrite(metadata.get(), character.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, definition.metadata),
      kBagWriteFailed);
}

void File::createLayer(const Hdf5Lock& lock, bagSurface surface, LayerSize size) {
  const LayerLayout& layout = layoutOf(surface);
  layers_.emplace(surface, Layer(lock, root_.get(), layout, size, Extremes(layout)));
}

// Where no cell is refined the finest resolution is that of the grid itself. The null, -1, would
// keep readers that resample from opening the file.
void File::createRefinementMetadata(const Hdf5Lock& lock) {
  const LayerLayout& layout = layoutOf(kSurfaceRefinementMetadata);
  Extremes empty(layout);
  empty.stateWhenEmpty(kResolutionXField, column_spacing_);
  empty.stateWhenEmpty(kResolutionYField, row_spacing_);
  layers_.emplace(layout.surface, Layer(lock, root_.get(), layout, grid_, empty));
}

void File::createVariableResolutionLayers(std::uint64_t refined_nodes, bool with_node_groups) {
  if (!has_variable_resolution_) fail(kBagNotVariableResolution);
  if (layers_.count(kSurfaceRefinement) != 0) fail(kBagLayersExist);
  // A cell names its first node by 32 bits, of which one value means none.
  if (refined_nodes > kBagNullIndex) fail(kBagTooManyRefinedNodes);
  const LayerSize refinements = {.rows = 1, .columns = refined_nodes};
  const Hdf5Lock lock;
  createRefinementMetadata(lock);
  createLayer(lock, kSurfaceRefinement, refinements);
  if (with_node_groups) {
    createLayer(lock, kSurfaceNodeGroup, grid_);
    createLayer(lock, kSurfaceRefinementNodeGroup, refinements);
  }
  createTrackingList(root_.get(), "varres_tracking_list",
                     compoundType({{"row", H5T_STD_U32LE},
                                   {"col", H5T_STD_U32LE},
                                   {"sub_row", H5T_STD_U32LE},
                                   {"sub_col", H5T_STD_U32LE},
                                   {"depth", H5T_IEEE_F32LE},
                                   {"uncertainty", H5T_IEEE_F32LE},
                                   {"track_code", H5T_STD_U8LE},
                                   {"list_series", H5T_STD_U16LE}}),
                     "VR Tracking List Length");
  // A disc without space for this much is told before the work is done.
  check(H5Fflush(file_.get(), H5F_SCOPE_LOCAL), kBagWriteFailed);
  if (disk_.failed) fail(kBagWriteFailed);
}

Layer& File::layer(int surface) {
  const LayerLayout& layout = layoutOf(surface);
  const auto found = layers_.find(layout.surface);
  if (found == layers_.end()) fail(kBagLayerMissing);
  return found->second;
}

void File::write(std::uint32_t row, std::uint32_t first_column, std::uint32_t last_column,
                 int surface, const void* records) {
  Layer& target = layer(surface);
  if (row >= target.size().rows) fail(kBagRowOutOfRange);
  if (first_column > last_column || last_column >= target.size().columns) {
    fail(kBagColumnsOutOfRange);
  }
  target.write(row, first_column, last_column, static_cast<const std::byte*>(records));
  checkDisk();
}

void File::update(int surface, bool mandatory) {
  if (layoutOf(surface).mandatory != mandatory) fail(kBagUnknownSurface);
  layer(surface).update();
  checkDisk();
}

void File::checkDisk() const {
  const Hdf5Lock lock;
  if (disk_.failed) fail(kBagWriteFailed);
}

void File::close() {
  std::exception_ptr flush_failure;
  for (auto& [surface, open_layer] : layers_) {
    try {
      open_layer.flush();
    } catch (...) {
      if (!flush_failure) flush_failure = std::current_exception();
    }
  }
  const Hdf5Lock lock;
  const bool written = !disk_.failed;
  const bool released = release(lock);
  if (flush_failure) std::rethrow_exception(flush_failure);
  if (!written) fail(kBagWriteFailed);
  if (!released) fail(kBagCloseFailed);
}

bool File::release(const Hdf5Lock&) {
  layers_.clear();
  const bool root_closed = root_.reset();
  return file_.reset() && root_closed && !disk_.failed;
}

void File::setAsideAsIncomplete() const {
  std::error_code ignored;
  std::filesystem::rename(path_, path_.string() + ".incomplete", ignored);
}

}  // namespace quarro::bag
