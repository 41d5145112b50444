// HDF5 for the BAG library: the lock that every call is made under, and owned identifiers.

#pragma once

#include <mutex>

#include <hdf5.h>

#include "bag/failure.h"

namespace quarro::bag {

// Holds the one mutex that serialises the library's HDF5 calls, which a build of HDF5 without
// threads needs and the other one does inside, and keeps HDF5 from printing on this thread.
// Functions that call HDF5 take a reference to it as proof.
class Hdf5Lock {
 public:
  Hdf5Lock();
  ~Hdf5Lock();
  Hdf5Lock(const Hdf5Lock&) = delete;
  Hdf5Lock& operator=(const Hdf5Lock&) = delete;

 private:
  std::lock_guard<std::mutex> guard_;
  H5E_auto2_t print_ = nullptr;
  void* print_data_ = nullptr;
};

// An HDF5 identifier and the function that releases it. Destroyed under an Hdf5Lock.
class Hdf5Id {
 public:
  using Release = herr_t (*)(hid_t);

  Hdf5Id() = default;
  // Throws Failure{status} where HDF5 gave no identifier.
  Hdf5Id(hid_t id, Release release, bagStatus status) : id_(id), release_(release) {
    if (id_ < 0) fail(status);
  }
  Hdf5Id(Hdf5Id&& other) noexcept;
  Hdf5Id& operator=(Hdf5Id&& other) noexcept;
  ~Hdf5Id() { reset(); }

  hid_t get() const { return id_; }
  // False when HDF5 could not release it, which for a file means that it is not all on disc.
  bool reset();

 private:
  hid_t id_ = H5I_INVALID_HID;
  Release release_ = nullptr;
};

inline void check(herr_t result, bagStatus status) {
  if (result < 0) fail(status);
}

}  // namespace quarro::bag
