// How much of the calling thread's stack is left.
#include "cli/stack_room.h"

#include <cstddef>
#include <cstdint>

#include <pthread.h>

namespace quarro {
namespace {

constexpr std::uintptr_t kLeastRoom = std::uintptr_t{256} << 10;  // bytes

}  // namespace

bool StackIsNearlyFull() {
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
    return false;
  }
  void* lowest = nullptr;
  std::size_t size = 0;
  const int status = pthread_attr_getstack(&attributes, &lowest, &size);
  pthread_attr_destroy(&attributes);
  const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  return status == 0 && here - reinterpret_cast<std::uintptr_t>(lowest) < kLeastRoom;
}

}  // namespace quarro
