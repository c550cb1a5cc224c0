#pragma once

#include <cstddef>
#include <list>
#include <string>
#include <string_view>
#include <utility>

#include "EventLoop.hpp"
#include "Fd.hpp"
#include "InstanceDir.hpp"
#include "LinkChannel.hpp"
#include "SendQueue.hpp"

namespace quorbin {

// The link channel over the Unix stream socket "qbstop" in the run-time directory. Lines ended by
// LF, answered in order, one line each: "execute COMMAND", "request ITEM", "notify ITEM". Only
// processes of the same user are served.
class LinkServer final : public LinkChannel {
 public:
  static constexpr std::size_t MaxClients = 16;  // a new one replaces the longest silent one

  // Loop and directory must outlive the server.
  LinkServer(EventLoop& loop, const InstanceDir& directory);
  ~LinkServer() override { SetLinkMode(0); }

  void SetEvents(Events events) { events_ = std::move(events); }
  void SetLinkMode(int mode) override;

 private:
  struct Client {
    Fd Connection;
    std::string Received;  // the line that is still incomplete
    SendQueue Answers;
  };
  using ClientPlace = std::list<Client>::iterator;

  void Publish();
  void ClientArrives();
  void ClientReady(ClientPlace client);
  bool ServeLines(ClientPlace client);
  std::string Answer(std::string_view line);
  void WatchClient(ClientPlace client);
  void Drop(ClientPlace client);

  EventLoop& loop_;
  const InstanceDir& directory_;
  Events events_;
  Fd listener_;
  std::list<Client> clients_;  // the longest silent first
  // The client whose line is being executed; it is kept until its answer is sent.
  const Client* served_ = nullptr;
};

}  // namespace quorbin
