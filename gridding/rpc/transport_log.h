// The messages of the transport beneath the protocol.
#pragma once

namespace quarro::rpc {

// Sends them to the channel "network", where errors have level 3 and all else is dropped, instead
// of the standard error; with `quiet` nothing at all. For the whole process, once.
void RouteTransportLog(bool quiet);

}  // namespace quarro::rpc
