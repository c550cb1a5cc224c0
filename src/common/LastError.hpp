#pragma once

#include <cerrno>
#include <system_error>

namespace quorbin {

// The failure that the last system call told.
inline std::error_code LastError() { return {errno, std::generic_category()}; }

}  // namespace quorbin
