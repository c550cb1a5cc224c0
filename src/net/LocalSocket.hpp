#pragma once

// Unix stream sockets in the run-time directory, for processes of the same user.

#include <string_view>
#include <system_error>

#include "Fd.hpp"

namespace quorbin {

// Listens on a socket of that name, mode 0600, in the open directory, which must be private to the
// user. A socket that nobody listens on any more is replaced atomically: a peer finds the old one,
// which refuses it, or the new one. A live one, and anything else of that name, stays, and the
// error is address_in_use. backlog: peers that may wait.
std::error_code ListenInDirectory(int directory, std::string_view name, int backlog, Fd& listener);

// The two halves of that, for a name that is ours already. The first makes a socket of that mode
// beside it, which refuses every peer; the second, which takes neither a descriptor nor room in the
// directory, lets it listen and puts it in place.
std::error_code BindNext(int directory, std::string_view name, Fd& next);
std::error_code ListenOnNext(int directory, std::string_view name, int backlog, const Fd& next);

// Removes the socket of that name, and one beside it.
void RemoveFromDirectory(int directory, std::string_view name);

// Whether the process at the other end belonged to our user when it connected.
bool IsSameUser(int peer);

}  // namespace quorbin
