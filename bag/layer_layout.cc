// The table of layers, their record types, and their extremes.

#include "bag/layer_layout.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

namespace quarro::bag {
namespace {

// Records go into the file as they lie in memory.
static_assert(std::endian::native == std::endian::little, "the file format is little endian");
static_assert(sizeof(bagNodeRecord) == 8);
static_assert(sizeof(bagRefinementMetadataRecord) == 28);
static_assert(sizeof(bagRefinementRecord) == 8);
static_assert(sizeof(bagRefinementNodeRecord) == 12);

constexpr Field floatField(const char* name, std::size_t offset, const char* min_attribute,
                           const char* max_attribute) {
  return {name, FieldType::kFloat32, offset, min_attribute, max_attribute};
}

constexpr Field countField(const char* name, std::size_t offset, const char* min_attribute,
                           const char* max_attribute) {
  return {name, FieldType::kUint32, offset, min_attribute, max_attribute};
}

constexpr std::array kElevationFields = {
    floatField("", 0, "Minimum Elevation Value", "Maximum Elevation Value")};
constexpr std::array kUncertaintyFields = {
    floatField("", 0, "Minimum Uncertainty Value", "Maximum Uncertainty Value")};

constexpr std::array kNodeFields = {
    floatField("hyp_strength", offsetof(bagNodeRecord, hypothesis_strength), "min_hyp_strength",
               "max_hyp_strength"),
    countField("num_hypotheses", offsetof(bagNodeRecord, hypothesis_count), "min_num_hypotheses",
               "max_num_hypotheses")};

using MetadataRecord = bagRefinementMetadataRecord;
constexpr std::array kRefinementMetadataFields = {
    countField("index", offsetof(MetadataRecord, index), nullptr, nullptr),
    countField("dimensions_x", offsetof(MetadataRecord, dimension_x), "min_dimensions_x",
               "max_dimensions_x"),
    countField("dimensions_y", offsetof(MetadataRecord, dimension_y), "min_dimensions_y",
               "max_dimensions_y"),
    floatField("resolution_x", offsetof(MetadataRecord, resolution_x_m), "min_resolution_x",
               "max_resolution_x"),
    floatField("resolution_y", offsetof(MetadataRecord, resolution_y_m), "min_resolution_y",
               "max_resolution_y"),
    floatField("sw_corner_x", offsetof(MetadataRecord, sw_corner_x_m), nullptr, nullptr),
    floatField("sw_corner_y", offsetof(MetadataRecord, sw_corner_y_m), nullptr, nullptr)};

static_assert(kRefinementMetadataFields[kResolutionXField].offset ==
              offsetof(MetadataRecord, resolution_x_m));
static_assert(kRefinementMetadataFields[kResolutionYField].offset ==
              offsetof(MetadataRecord, resolution_y_m));

constexpr std::array kRefinementFields = {
    floatField("depth", offsetof(bagRefinementRecord, elevation_m), "min_depth", "max_depth"),
    floatField("depth_uncrt", offsetof(bagRefinementRecord, uncertainty_m), "min_uncrt",
               "max_uncrt")};

constexpr std::array kRefinementNodeFields = {
    floatField("hyp_strength", offsetof(bagRefinementNodeRecord, hypothesis_strength),
               "min_hyp_strength", "max_hyp_strength"),
    countField("num_hypotheses", offsetof(bagRefinementNodeRecord, hypothesis_count),
               "min_num_hypotheses", "max_num_hypotheses"),
    countField("n_samples", offsetof(bagRefinementNodeRecord, sample_count), "min_n_samples",
               "max_n_samples")};

constexpr float kNullFloat = kBagNullValue;
constexpr bagNodeRecord kNullNode = {kBagNullValue, 0};
constexpr MetadataRecord kNullMetadata = {kBagNullIndex, 0, 0, -1.0F, -1.0F, -1.0F, -1.0F};
constexpr bagRefinementRecord kNullRefinement = {kBagNullValue, kBagNullValue};
constexpr bagRefinementNodeRecord kNullRefinementNode = {kBagNullValue, 0, 0};

template <typename Record>
LayerLayout layout(bagSurface surface, const char* name, std::span<const Field> fields,
                   const Record& null_record) {
  const bool mandatory = surface == kSurfaceElevation || surface == kSurfaceUncertainty;
  const bool one_row = surface == kSurfaceRefinement || surface == kSurfaceRefinementNodeGroup;
  return {.surface = surface,
          .name = name,
          .compound = !mandatory,
          .record_size = sizeof(Record),
          .fields = fields,
          .null_record = std::as_bytes(std::span(&null_record, 1)),
          .mandatory = mandatory,
          .one_row = one_row};
}

template <typename Value>
Value valueAt(const std::byte* bytes) {
  Value value;
  std::memcpy(&value, bytes, sizeof(value));
  return value;
}

double valueOf(const Field& field, const std::byte* record) {
  const std::byte* bytes = record + field.offset;
  return field.type == FieldType::kFloat32 ? static_cast<double>(valueAt<float>(bytes))
                                           : static_cast<double>(valueAt<std::uint32_t>(bytes));
}

}  // namespace

const LayerLayout& layoutOf(int surface) {
  static const std::array kLayouts = {
      layout(kSurfaceElevation, "elevation", kElevationFields, kNullFloat),
      layout(kSurfaceUncertainty, "uncertainty", kUncertaintyFields, kNullFloat),
      layout(kSurfaceNodeGroup, "node", kNodeFields, kNullNode),
      layout(kSurfaceRefinementMetadata, "varres_metadata", kRefinementMetadataFields,
             kNullMetadata),
      layout(kSurfaceRefinement, "varres_refinements", kRefinementFields, kNullRefinement),
      layout(kSurfaceRefinementNodeGroup, "varres_nodes", kRefinementNodeFields,
             kNullRefinementNode)};
  const auto* const found =
      std::find_if(kLayouts.begin(), kLayouts.end(), [surface](const LayerLayout& candidate) {
        return static_cast<int>(candidate.surface) == surface;
      });
  if (found == kLayouts.end()) fail(kBagUnknownSurface);
  return *found;
}

hid_t hdf5Type(FieldType type) {
  return type == FieldType::kFloat32 ? H5T_IEEE_F32LE : H5T_STD_U32LE;
}

Hdf5Id recordType(const Hdf5Lock&, const LayerLayout& layout) {
  if (!layout.compound) {
    return {H5Tcopy(hdf5Type(layout.fields[0].type)), H5Tclose, kBagCreateFailed};
  }
  Hdf5Id type(H5Tcreate(H5T_COMPOUND, layout.record_size), H5Tclose, kBagCreateFailed);
  for (const Field& field : layout.fields) {
    check(H5Tinsert(type.get(), field.name, field.offset, hdf5Type(field.type)), kBagCreateFailed);
  }
  return type;
}

Extremes::Extremes(const LayerLayout& layout) : layout_(&layout) {
  for (const Field& field : layout.fields) {
    const double null = valueOf(field, layout.null_record.data());
    ranges_.push_back({.null = null,
                       .empty = null,
                       .min = std::numeric_limits<double>::infinity(),
                       .max = -std::numeric_limits<double>::infinity()});
  }
}

template <typename Value>
void Extremes::addField(std::size_t index, std::span<const std::byte> records) {
  const Field& field = layout_->fields[index];
  Range& range = ranges_[index];
  const auto null_key = valueAt<std::uint32_t>(layout_->null_record.data());
  // A float may be null on its own, in a record that has other data.
  const auto null_float = static_cast<float>(range.null);
  using Limits = std::numeric_limits<Value>;
  Value least = Limits::has_infinity ? Limits::infinity() : Limits::max();
  Value greatest = Limits::has_infinity ? -Limits::infinity() : Limits::lowest();
  bool any = false;
  for (std::size_t at = 0; at < records.size(); at += layout_->record_size) {
    const std::byte* record = records.data() + at;
    if (valueAt<std::uint32_t>(record) == null_key) continue;
    const auto value = valueAt<Value>(record + field.offset);
    if constexpr (std::is_same_v<Value, float>) {
      if (value == null_float || std::isnan(value)) continue;
    }
    least = std::min(least, value);
    greatest = std::max(greatest, value);
    any = true;
  }
  if (!any) return;
  range.min = std::min(range.min, static_cast<double>(least));
  range.max = std::max(range.max, static_cast<double>(greatest));
}

void Extremes::add(std::span<const std::byte> records) {
  for (std::size_t index = 0; index < ranges_.size(); ++index) {
    const Field& field = layout_->fields[index];
    if (field.min_attribute == nullptr) continue;
    if (field.type == FieldType::kFloat32) {
      addField<float>(index, records);
    } else {
      addField<std::uint32_t>(index, records);
    }
  }
}

void Extremes::add(const Extremes& other) {
  for (std::size_t index = 0; index < ranges_.size(); ++index) {
    ranges_[index].min = std::min(ranges_[index].min, other.ranges_[index].min);
    ranges_[index].max = std::max(ranges_[index].max, other.ranges_[index].max);
  }
}

double Extremes::min(std::size_t field) const {
  const Range& range = ranges_[field];
  return range.min <= range.max ? range.min : range.empty;
}

double Extremes::max(std::size_t field) const {
  const Range& range = ranges_[field];
  return range.min <= range.max ? range.max : range.empty;
}

}  // namespace quarro::bag
