// What each layer of a BAG looks like in the file: its name, its record, its null, and the names
// under which its minima and maxima are stored.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "bag/hdf5.h"

namespace quarro::bag {

enum class FieldType { kFloat32, kUint32 };

// One number of a record; both types are four bytes.
struct Field {
  const char* name;
  FieldType type;
  std::size_t offset;
  // The attributes of its extremes; null where none are stored.
  const char* min_attribute;
  const char* max_attribute;
};

struct LayerLayout {
  bagSurface surface;
  const char* name;
  // A compound of named fields, or a plain float.
  bool compound;
  std::size_t record_size;
  std::span<const Field> fields;
  // One record of `record_size` bytes. A record whose first field holds the null's is null.
  std::span<const std::byte> null_record;
  // Mandatory layers have extremes that bagUpdateSurface stores.
  bool mandatory;
  // The refinements of all cells lie end to end in one row.
  bool one_row;
};

// Fields of kSurfaceRefinementMetadata, by their place in its record.
inline constexpr std::size_t kResolutionXField = 3;
inline constexpr std::size_t kResolutionYField = 4;

// Throws Failure{kBagUnknownSurface}.
const LayerLayout& layoutOf(int surface);

// The record's type in the file and in memory; both are little endian.
Hdf5Id recordType(const Hdf5Lock&, const LayerLayout& layout);

hid_t hdf5Type(FieldType type);

// The least and the greatest value of each field of a layer, nulls left out. Both types fit a
// double exactly.
class Extremes {
 public:
  explicit Extremes(const LayerLayout& layout);

  void add(std::span<const std::byte> records);
  void add(const Extremes& other);

  // What min and max give as long as nothing but nulls was seen; the null itself otherwise.
  void stateWhenEmpty(std::size_t field, double value) { ranges_[field].empty = value; }

  double min(std::size_t field) const;
  double max(std::size_t field) const;

 private:
  struct Range {
    double null;
    double empty;
    double min;
    double max;
  };

  template <typename Value>
  void addField(std::size_t index, std::span<const std::byte> records);

  const LayerLayout* layout_;
  std::vector<Range> ranges_;
};

}  // namespace quarro::bag
