#pragma once

#include <string>
#include <string_view>

namespace quorbin {

// Whether a character can change how others are shown: a control character, or a mark of Unicode
// that has no width, turns the direction or ends a line. The one list of them; quorbin-keep repeats
// it.
bool Steers(char32_t point);

// The bytes in a form that can't steer a terminal. Valid UTF-8 stays as it is, except for the
// backslash and what steers; these become \r, \n, \t, \\ or \xHH for each byte, and so does every
// other byte from 128 up. Two different texts never look the same.
std::string Printable(std::string_view bytes);

}  // namespace quorbin
