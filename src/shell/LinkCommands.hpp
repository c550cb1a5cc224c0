#pragma once

// The commands of the link channel.

#include <cstdint>
#include <optional>
#include <string>

#include "Form1.hpp"

namespace quorbin {

// One command of a client: "stopsrv", "con ENTRY" or "dis ENTRY". Cancel is 0 for accepted; it
// keeps its value, refused, for a "dis" before the first "con".
void LinkExecute(Form1& form, const std::string& CmdStr, std::int16_t& Cancel);

// The value of an item; nullopt unless it is "stopsrv".
std::optional<std::string> LinkRequest(const Form1& form, const std::string& item);

// A notification of an item. True if it had an effect: the main window closes.
bool LinkNotify(Form1& form, const std::string& item);

}  // namespace quorbin
