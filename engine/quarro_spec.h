// One engine as discovery found it.
#pragma once

#include <cstdint>
#include <ostream>

namespace quarro {

// A value of five 32-bit words.
struct QuarroSpec {
  std::uint32_t protocol_version = 0;
  std::uint32_t engine_version = 0;  // major in the upper 16 bits, minor in the lower
  std::uint32_t threads = 0;         // execution threads that the engine may use
  std::uint32_t port = 0;            // TCP port that takes requests; 0 for the in-process engine
  std::uint32_t ipv4_address = 0;    // in host byte order

  friend bool operator==(const QuarroSpec&, const QuarroSpec&) = default;
};

// "192.168.1.7:4520, 8 threads, engine 1.1, protocol 1"; the in-process engine shows "in process"
// in place of address and port.
inline std::ostream& operator<<(std::ostream& out, const QuarroSpec& spec) {
  const auto octet = [&](int shift) { return (spec.ipv4_address >> shift) & 0xffU; };
  if (spec.port == 0) {
    out << "in process";
  } else {
    out << octet(24) << '.' << octet(16) << '.' << octet(8) << '.' << octet(0) << ':' << spec.port;
  }
  return out << ", " << spec.threads << " threads, engine " << (spec.engine_version >> 16) << '.'
             << (spec.engine_version & 0xffffU) << ", protocol " << spec.protocol_version;
}

}  // namespace quarro
