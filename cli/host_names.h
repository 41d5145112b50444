// Host names of engines, looked up off the console's way.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace quarro {

// Looks each IPv4 address up once, on a thread of its own that starts with the first address and
// is joined by the destructor. A name server that does not answer holds the destructor up for the
// resolver's time-out, which that thread sets to a second for each name server.
class HostNames {
 public:
  // Gives the name of an address in host byte order, or its dotted form when it has none.
  using Lookup = std::function<std::string(std::uint32_t ipv4_address)>;

  static constexpr std::chrono::milliseconds kFirstWait{250};

  HostNames();  // looks up with the system's resolver
  explicit HostNames(Lookup lookup);
  HostNames(const HostNames&) = delete;
  HostNames& operator=(const HostNames&) = delete;
  ~HostNames();

  // The name of an address in host byte order, or its dotted form while no name is known. The first
  // call for an address waits up to kFirstWait for the answer.
  std::string NameOf(std::uint32_t ipv4_address);

 private:
  void Run();

  const Lookup lookup_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::uint32_t, std::optional<std::string>> names_;  // guarded by mutex_
  bool stopping_ = false;                                      // guarded by mutex_
  std::thread thread_;  // belongs to the thread that calls NameOf
};

// "192.168.1.7" for an address in host byte order.
std::string DottedAddress(std::uint32_t ipv4_address);

}  // namespace quarro
