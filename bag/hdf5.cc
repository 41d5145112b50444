// The HDF5 lock and owned identifiers.

#include "bag/hdf5.h"

#include <utility>

namespace quarro::bag {
namespace {

std::mutex& hdf5Mutex() {
  static std::mutex mutex;
  return mutex;
}

}  // namespace

Hdf5Lock::Hdf5Lock() : guard_(hdf5Mutex()) {
  H5Eget_auto2(H5E_DEFAULT, &print_, &print_data_);
  H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
}

Hdf5Lock::~Hdf5Lock() { H5Eset_auto2(H5E_DEFAULT, print_, print_data_); }

Hdf5Id::Hdf5Id(Hdf5Id&& other) noexcept
    : id_(std::exchange(other.id_, H5I_INVALID_HID)), release_(other.release_) {}

Hdf5Id& Hdf5Id::operator=(Hdf5Id&& other) noexcept {
  if (this != &other) {
    reset();
    id_ = std::exchange(other.id_, H5I_INVALID_HID);
    release_ = other.release_;
  }
  return *this;
}

bool Hdf5Id::reset() {
  if (id_ < 0) return true;
  return release_(std::exchange(id_, H5I_INVALID_HID)) >= 0;
}

}  // namespace quarro::bag
