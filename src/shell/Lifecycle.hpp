#pragma once

// Start-up and shutdown, and the listening in between.

#include <cstdint>
#include <string>

#include "Form1.hpp"

namespace quorbin {

inline constexpr int ExitFailure = 1;

// Start-up, raised once before anything else. Ends the process with ExitFailure if another instance
// runs, a setting has an invalid value, or the port can't be opened; a message says which.
void Load(Form1& form);

// The main window is about to close. Cancel comes back as 0: the close is never refused. Does
// nothing else before Load has run to its end: a start that fails must delete nothing.
void QueryUnload(Form1& form, std::int16_t& Cancel);

// Opens the port again at the end of each connection. If that fails, reports the port and the
// reason and ends the process: a supervisor restarts it, which is better than a service that can't
// be reached.
void Listen(Form1& form);

}  // namespace quorbin
