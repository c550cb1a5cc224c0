#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quorbin {

// Bytes waiting to be sent on a stream socket, for which the program never waits.
class SendQueue {
 public:
  // Bytes kept at most for a peer that does not read.
  static constexpr std::size_t Limit = std::size_t{64} << 10U;

  enum class Result { Sent, Waiting, Failed };

  // Sends the bytes after those that still wait; what the system does not take is kept. Failed: the
  // connection is gone, or more than Limit would be kept.
  Result Send(int descriptor, std::string_view bytes);

  // Sends what waits, as far as the system takes it.
  Result Flush(int descriptor);

  bool Empty() const { return waiting_.empty(); }

 private:
  std::string waiting_;
};

}  // namespace quorbin
