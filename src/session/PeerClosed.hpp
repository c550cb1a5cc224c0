#pragma once

// The end of a connection by its peer or by an error, wherever it is noticed.

#include "Form1.hpp"

namespace quorbin {

// The connection is over from the peer's side, or by an error: a partial file and all other
// received files are deleted, and the program listens again. Also the Close event.
void PeerClosed(Form1& form);

}  // namespace quorbin
