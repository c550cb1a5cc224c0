#pragma once

// The events of Winsock1: one connection from its request to its end.

#include <cstdint>
#include <string>

#include "Form1.hpp"

namespace quorbin {

// Accepts the peer, whatever CheckHost says of it, and clears the session in place. A refused peer
// is turned away by its first chunk.
void ConnectionRequest(Form1& form, int requestID);

// Takes the chunk and hands it to the control or the data phase.
void DataArrival(Form1& form, std::int64_t ChunkLen);

// The connection is over from the peer's side, or by an error: a partial file and all other
// received files are deleted, and the program listens again. Also the Close event.
void PeerClosed(Form1& form);

// An error of the socket: told in the log, then as if the peer had closed.
void Error(Form1& form, int Number, const std::string& Description, bool& CancelDisplay);

// Appends "Error: " with number and text to the log, at every LogLevel.
void LogError(Form1& form, int Number, const std::string& Description);

}  // namespace quorbin
