#pragma once

#include <cstdint>
#include <string>

#include "Form1.hpp"

namespace quorbin {

// One registry value as text; an empty ValueName names the key's default value. Empty if key or
// value is missing, if the value needs more than 1024 bytes, or if its type is neither text nor a
// 32-bit number. Percent signs stay as they are.
std::string ReadRegValue(Form1& form, std::uint32_t RootKey, const std::string& KeyPath,
                         const std::string& ValueName);

}  // namespace quorbin
