#pragma once

#include <cstddef>
#include <list>

#include "EventLoop.hpp"
#include "Fd.hpp"
#include "SendQueue.hpp"

namespace quorbin {

// Connections that the program has closed and whose last replies must still reach the peer. Unread
// bytes at close() would turn into a reset that can overtake a reply, so first the replies go out,
// then the writing side is shut down, and what the peer still sends is drained until it closes. All
// of that happens after the running event, so that a peer who sees the end of its connection finds
// the program listening again, and it is bounded in bytes and number.
class Lingering {
 public:
  // The loop must outlive the object, whose destructor closes what still lingers.
  explicit Lingering(EventLoop& loop) : loop_(loop) {}
  Lingering(const Lingering&) = delete;
  Lingering& operator=(const Lingering&) = delete;
  ~Lingering();

  // Takes over a connection that is not watched, and the replies that go out before its end.
  // peerHasClosed: its end of file has been read, so nothing unread can be left.
  void Add(Fd connection, SendQueue replies, bool peerHasClosed);

 private:
  struct Entry {
    Fd Connection;
    SendQueue Replies;
    std::size_t Budget;  // bytes still drained before the connection is closed
    bool PeerHasClosed;  // its side; replies still go out
    bool Begun;          // the event that closed it is over
  };
  using Place = std::list<Entry>::iterator;

  void BeginAll();
  void Begin(Place entry);
  void Watch(Place entry);
  void Ready(Place entry);
  void Drain(Place entry);
  void Forget(Place entry);

  EventLoop& loop_;
  std::list<Entry> entries_;  // oldest first
};

}  // namespace quorbin
