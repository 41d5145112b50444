#include "gridding/rpc/peer.h"

namespace quarro::rpc {

std::string PeerText(const std::string& peer) {
  std::string text = peer;
  for (const char* scheme : {"ipv4:", "ipv6:"}) {
    if (text.starts_with(scheme)) text.erase(0, 5);
  }
  // Brackets come as %5B and %5D.
  for (const auto& [code, bracket] : {std::pair("%5B", "["), std::pair("%5D", "]")}) {
    const std::size_t at = text.find(code);
    if (at != std::string::npos) text.replace(at, 3, bracket);
  }
  return text;
}

std::string IdentityOf(const grpc::ServerContext& context) {
  const auto authentication = context.auth_context();
  if (!authentication || !authentication->IsPeerAuthenticated()) return "";
  std::string identity;
  for (const grpc::string_ref& name : authentication->GetPeerIdentity()) {
    identity.append(name.data(), name.size()).append("\n");
  }
  return identity;
}

std::string VersionMismatch(std::uint32_t client, std::uint32_t engine) {
  return "the client speaks protocol version " + std::to_string(client) +
         ", the engine protocol version " + std::to_string(engine) +
         ": use a client and an engine of one version";
}

}  // namespace quarro::rpc
