#pragma once

#include <unistd.h>

#include <utility>

namespace quorbin {

// Owner of a descriptor; -1 is none.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int descriptor) : descriptor_(descriptor) {}
  Fd(Fd&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    if (this != &other) Reset(std::exchange(other.descriptor_, -1));
    return *this;
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  ~Fd() { Reset(); }

  int Get() const { return descriptor_; }
  explicit operator bool() const { return descriptor_ >= 0; }
  // The descriptor is the caller's from here on.
  int Release() { return std::exchange(descriptor_, -1); }
  void Reset(int descriptor = -1) {
    if (descriptor_ >= 0) ::close(descriptor_);
    descriptor_ = descriptor;
  }

 private:
  int descriptor_ = -1;
};

}  // namespace quorbin
