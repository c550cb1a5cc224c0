#pragma once

// The lines of the link channel, for the service and for its client.

#include <cstddef>
#include <string_view>

namespace quorbin {

namespace LinkProtocol {
// Name of the socket in the run-time directory.
inline constexpr std::string_view SocketName = "qbstop";

// Bytes of a line, its LF not counted.
inline constexpr std::size_t MaxLine = 4096;

// What a line begins with; one blank and the text follow.
inline constexpr std::string_view Execute = "execute";
inline constexpr std::string_view Request = "request";
inline constexpr std::string_view Notify = "notify";

// Answers.
inline constexpr std::string_view Accepted = "accepted";
inline constexpr std::string_view Refused = "refused";
inline constexpr std::string_view Value = "value ";  // the item's value follows
}  // namespace LinkProtocol

}  // namespace quorbin
