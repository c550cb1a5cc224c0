#pragma once

// The events of Winsock1: one connection from its request to its end, except Close, which is
// PeerClosed.

#include <cstdint>
#include <string>

#include "Form1.hpp"
#include "PeerClosed.hpp"

namespace quorbin {

// Accepts the peer, whatever CheckHost decides, and starts a new session. A refused peer is turned
// away at its first chunk.
void ConnectionRequest(Form1& form, int requestID);

// Takes the chunk and hands it to the control or the data phase.
void DataArrival(Form1& form, std::int64_t ChunkLen);

// An error of the socket: reported in the log, then as if the peer had closed.
void Error(Form1& form, int Number, const std::string& Description, bool& CancelDisplay);

}  // namespace quorbin
