#include "SendQueue.hpp"

#include <sys/socket.h>

#include <cerrno>

namespace quorbin {

namespace {

// Bytes taken; -1 if the connection is gone.
ssize_t SendSome(int descriptor, std::string_view bytes) {
  for (;;) {
    const ssize_t sent =
        ::send(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent >= 0) return sent;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
    if (errno != EINTR) return -1;
  }
}

}  // namespace

SendQueue::Result SendQueue::Send(int descriptor, std::string_view bytes) {
  if (waiting_.empty()) {
    const ssize_t sent = SendSome(descriptor, bytes);
    if (sent < 0) return Result::Failed;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
    if (bytes.empty()) return Result::Sent;
  }
  if (waiting_.size() + bytes.size() > Limit) return Result::Failed;
  waiting_.append(bytes);
  return Result::Waiting;
}

SendQueue::Result SendQueue::Flush(int descriptor) {
  const ssize_t sent = SendSome(descriptor, waiting_);
  if (sent < 0) return Result::Failed;
  waiting_.erase(0, static_cast<std::size_t>(sent));
  return waiting_.empty() ? Result::Sent : Result::Waiting;
}

}  // namespace quorbin
