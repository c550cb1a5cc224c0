#pragma once

// What the journal keeps of a connection.

#include <string_view>

#include "Form1.hpp"

namespace quorbin {

// How a connection ended, if no word of the field resu describes it.
namespace Outcome {
inline constexpr std::string_view PeerClosed = "closed by the peer";
inline constexpr std::string_view BrokenOff = "transfer broken off";
inline constexpr std::string_view GivenUp = "given up by the sender";
inline constexpr std::string_view WebRequest = "request of a web page";
inline constexpr std::string_view ViewerStarted = "viewer started";
inline constexpr std::string_view ViewerNotStarted = "viewer could not be started";
}  // namespace Outcome

enum class Ending { Good, Bad };

// Writes the one entry of the connection that has just ended, after the program listens again, so
// that nobody waits for it. Writes nothing if no connection has begun since the last entry. Where
// PeerClosed is to come, it is called before that, or PeerClosed would write the entry in its own
// words.
void RecordConnection(Form1& form, std::string_view outcome, Ending ending);

}  // namespace quorbin
