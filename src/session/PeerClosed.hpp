#pragma once

// The end of a connection by its peer, by an error, or because a transfer can't go on.

#include "Form1.hpp"

namespace quorbin {

// Ends the connection and listens again. If a file was open, it and all other received files are
// deleted. Also the Close event.
void PeerClosed(Form1& form);

}  // namespace quorbin
