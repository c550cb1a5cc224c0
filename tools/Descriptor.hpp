#pragma once

#include <unistd.h>

#include <string>
#include <system_error>
#include <utility>

namespace quorbin {

// Owner of a descriptor; a negative number is none.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : number(fd) {}
  Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number, other.number);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number >= 0) close(number);
  }

  int number;
};

// The system's words for an error number.
inline std::string SystemText(int error) { return std::generic_category().message(error); }

}  // namespace quorbin
