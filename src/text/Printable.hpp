#pragma once

#include <string>
#include <string_view>

namespace quorbin {

// The bytes in a form that can't steer a terminal. Valid UTF-8 stays as it is, except for control
// characters, the backslash, and the marks that change the direction of what follows; these become
// \r, \n, \t, \\ or \xHH for each byte, and so does every other byte from 128 up. Two different
// texts never look the same.
std::string Printable(std::string_view bytes);

}  // namespace quorbin
