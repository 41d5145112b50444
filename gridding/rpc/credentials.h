// How both ends prove who they are: TLS with certificates of one private authority, or plain text.
#pragma once

#include <memory>

#include <grpcpp/grpcpp.h>

#include "gridding/rpc/network_settings.h"

namespace quarro::rpc {

// Throws ExSGClientBase, naming the file, for a certificate or key that cannot be read, that do not
// belong together, or that the authority has not signed. A certificate that is out of its time is
// none that serves: it is refused too.
void CheckCertificates(const NetworkSettings& settings);

// Certificates are read again when their files change, within a few seconds, for connections made
// from then on. Clients must have a certificate that the authority signed.
std::shared_ptr<grpc::ServerCredentials> ServerCredentialsFor(const NetworkSettings& settings);

// Certificates are read once. The server must have a certificate for the name kServerName that the
// authority signed.
std::shared_ptr<grpc::ChannelCredentials> ChannelCredentialsFor(const NetworkSettings& settings);

}  // namespace quarro::rpc
