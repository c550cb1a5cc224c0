#pragma once

#include <string>
#include <string_view>

namespace quorbin {

// The bytes so that they can't steer a terminal: valid UTF-8 as it is; control characters and the
// backslash as \r, \n, \t, \\ or \xHH; every other byte from 128 up as \xHH.
std::string Printable(std::string_view bytes);

}  // namespace quorbin
