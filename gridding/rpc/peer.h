// Who is at the other end of a connection, and what is told of it.
#pragma once

#include <cstdint>
#include <string>

#include <grpcpp/grpcpp.h>

namespace quarro::rpc {

// "127.0.0.1:4711" or "[::1]:4711" from gRPC's form of a peer.
std::string PeerText(const std::string& peer);

// What the peer's certificate tells, empty without one.
std::string IdentityOf(const grpc::ServerContext& context);

// Why a client and an engine do not understand each other.
std::string VersionMismatch(std::uint32_t client, std::uint32_t engine);

}  // namespace quarro::rpc
