// What the tests of BAG files share: a file in a folder of its own, and a reader of what it holds.

#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <hdf5.h>

#include "bag/bag.h"
#include "bag/test_grid.h"

namespace quarro::bag {

inline std::string textOf(bagError status) {
  const char* text = "no text";
  EXPECT_EQ(bagGetErrorString(status, &text), 0);
  return text;
}

inline bagError define(const TestFolder& folder, const TestGrid& grid, bagData* definition) {
  const auto path = folder / (grid.name + ".xml");
  writeText(path, filledTemplate(templateOf(grid), grid));
  const bagError status = bagInitDefinitionFromFile(definition, path.c_str());
  definition->has_variable_resolution = 1;
  return status;
}

// What a file that was closed holds.
class Reader {
 public:
  explicit Reader(const std::filesystem::path& path)
      : file_(H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT)) {}
  ~Reader() { H5Fclose(file_); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  bool valid() const { return file_ >= 0; }

  template <typename Record>
  std::vector<Record> records(const std::string& layer) const {
    const hid_t dataset = open(layer);
    const hid_t space = H5Dget_space(dataset);
    const hid_t type = H5Dget_type(dataset);
    EXPECT_EQ(H5Tget_size(type), sizeof(Record));
    std::vector<Record> all(static_cast<std::size_t>(H5Sget_simple_extent_npoints(space)));
    EXPECT_GE(H5Dread(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, all.data()), 0);
    H5Tclose(type);
    H5Sclose(space);
    H5Dclose(dataset);
    return all;
  }

  double attribute(const std::string& layer, const char* name) const {
    const hid_t dataset = open(layer);
    const hid_t attribute = H5Aopen(dataset, name, H5P_DEFAULT);
    double value = -12345.0;
    EXPECT_GE(H5Aread(attribute, H5T_NATIVE_DOUBLE, &value), 0) << layer << " " << name;
    H5Aclose(attribute);
    H5Dclose(dataset);
    return value;
  }

 private:
  hid_t open(const std::string& layer) const {
    return H5Dopen2(file_, ("/BAG_root/" + layer).c_str(), H5P_DEFAULT);
  }

  hid_t file_;
};

class BagFile : public testing::Test {
 protected:
  ~BagFile() override {
    if (file_ != nullptr) bagFileClose(file_);
    bagFreeDefinition(&definition_);
  }

  bagError create(const TestGrid& grid) {
    EXPECT_EQ(define(folder_, grid, &definition_), kBagSuccess);
    return bagFileCreate(path_.c_str(), &definition_, &file_);
  }

  bagError close() { return bagFileClose(std::exchange(file_, nullptr)); }

  bagError writeElevations(std::uint32_t row, std::uint32_t first,
                           const std::vector<float>& elevations) {
    return bagWriteRow(file_, row, first, first + static_cast<std::uint32_t>(elevations.size()) - 1,
                       kSurfaceElevation, elevations.data());
  }

  TestFolder folder_;
  std::filesystem::path path_ = folder_ / "test.bag";
  bagData definition_ = {};
  bagHandle* file_ = nullptr;
};

}  // namespace quarro::bag
