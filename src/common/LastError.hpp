#pragma once

#include <cerrno>
#include <system_error>

namespace quorbin {

// The error of the system call that has just failed.
inline std::error_code LastError() { return {errno, std::generic_category()}; }

}  // namespace quorbin
