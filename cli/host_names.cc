// Reverse look-ups of engine addresses.
#include "cli/host_names.h"

#include <exception>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <resolv.h>

namespace quarro {
namespace {

std::string LookUpWithSystemResolver(std::uint32_t ipv4_address) {
  // The resolver's settings belong to the thread. A silent name server is given up after a second,
  // so that the program's end never waits for it much longer.
  if (res_init() == 0) {
    _res.retrans = 1;
    _res.retry = 1;
  }
  using boost::asio::ip::tcp;
  boost::asio::io_context context;
  tcp::resolver resolver(context);
  // The port plays no part in the name.
  const auto names = resolver.resolve(tcp::endpoint(boost::asio::ip::address_v4(ipv4_address), 1));
  return names.empty() ? DottedAddress(ipv4_address) : names.begin()->host_name();
}

}  // namespace

HostNames::HostNames() : HostNames(LookUpWithSystemResolver) {}

HostNames::HostNames(Lookup lookup) : lookup_(std::move(lookup)) {}

HostNames::~HostNames() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) {
    thread_.join();
  }
}

std::string HostNames::NameOf(std::uint32_t ipv4_address) {
  std::unique_lock lock(mutex_);
  const auto [entry, is_new] = names_.try_emplace(ipv4_address);
  if (is_new) {
    if (!thread_.joinable()) {
      thread_ = std::thread(&HostNames::Run, this);
    }
    changed_.notify_all();
    changed_.wait_for(lock, kFirstWait, [&name = entry->second] { return name.has_value(); });
  }
  return entry->second.value_or(DottedAddress(ipv4_address));
}

void HostNames::Run() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    auto entry = names_.begin();
    while (entry != names_.end() && entry->second.has_value()) {
      ++entry;
    }
    if (entry == names_.end()) {
      changed_.wait(lock);
      continue;
    }
    lock.unlock();
    std::string name;
    try {
      name = lookup_(entry->first);
    } catch (const std::exception&) {
      name = DottedAddress(entry->first);
    }
    lock.lock();
    entry->second = std::move(name);
    changed_.notify_all();
  }
}

std::string DottedAddress(std::uint32_t ipv4_address) {
  return boost::asio::ip::address_v4(ipv4_address).to_string();
}

}  // namespace quarro
