// A connection to a server that a test can cut or hold up.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace quarro::testing {

// Passes bytes between 127.0.0.1:Port() and a server on 127.0.0.1, on one thread.
class TcpProxy {
 public:
  explicit TcpProxy(std::uint16_t server_port);
  ~TcpProxy();
  TcpProxy(const TcpProxy&) = delete;
  TcpProxy& operator=(const TcpProxy&) = delete;

  std::uint16_t Port() const { return port_; }

  // Breaks every connection, and those made until Mend.
  void Cut() {
    all_closed_ = false;
    broken_ = true;
    all_closed_.wait(false);
  }
  // Breaks every connection, but lets new ones be made.
  void CutOnce() { cut_once_ = true; }
  // Holds every byte back, as when packets are dropped, until Mend.
  void Stall() { stalled_ = true; }
  void Mend() {
    broken_ = false;
    stalled_ = false;
  }
  // Breaks every connection once so many more bytes came from the server.
  void CutAfter(std::uint64_t bytes_from_server) { bytes_left_ = bytes_from_server; }

 private:
  struct Way {
    int client;
    int server;
  };
  void Run();
  void Accept();
  bool Pass(int from, int to, bool from_server);

  const std::uint16_t server_port_;
  int listener_ = -1;
  std::uint16_t port_ = 0;
  std::atomic<bool> broken_ = false;
  std::atomic<bool> all_closed_ = false;
  std::atomic<bool> cut_once_ = false;
  std::atomic<bool> stalled_ = false;
  std::atomic<bool> stopping_ = false;
  std::atomic<std::uint64_t> bytes_left_ = UINT64_MAX;
  std::list<Way> ways_;  // of the thread
  std::thread thread_;
};

}  // namespace quarro::testing
