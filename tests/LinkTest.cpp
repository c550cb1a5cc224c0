// The link channel of the built service, through a raw socket.

#include <gtest/gtest.h>

#include "Service.hpp"

namespace quorbin::tests {
namespace {

Peer Link(const Service& service) { return Peer::Local(service.Path("run/Quorbin/qbstop")); }

// The answers to the lines, after which the client ends its half; "(error)" without a service.
std::string Ask(const Service& service, const std::string& lines) {
  const Peer client = Link(service);
  client.Send(lines);
  ::shutdown(client.Descriptor(), SHUT_WR);
  return client.ReceiveAll();
}

TEST(Link, Lines) {
  Running service;
  const std::size_t descriptors = service.Descriptors();
  EXPECT_EQ(fs::status(service.Path("run/Quorbin")).permissions(), fs::perms::owner_all);
  EXPECT_EQ(fs::status(service.Path("run/Quorbin/qbstop")).permissions(),
            fs::perms::owner_read | fs::perms::owner_write);

  const std::pair<std::string, std::string> rows[] = {
      {"execute con 10.0.0.7\nexecute dis 10.0.0.7\n", "accepted\naccepted\n"},
      {"request stopsrv\nrequest other\n", "value dis\nrefused\n"},
      {"execute\nexecute \nnotify other\n", "refused\nrefused\nrefused\n"},
      {"request\n\nexecute con\n", "refused\nrefused\nrefused\n"},
      {"execute con " + std::string(4096 - 12, 'x') + "\n", "accepted\n"},
  };
  for (const auto& [lines, answers] : rows) EXPECT_EQ(Ask(service, lines), answers) << lines;

  // Reads long after the service is done with it.
  const Peer late = Link(service);
  std::string questions, answers;
  for (int i = 0; i < 2000; ++i) questions += "request stopsrv\n", answers += "value con\n";
  late.Send(questions);
  ::shutdown(late.Descriptor(), SHUT_WR);
  EXPECT_TRUE(Eventually([&] { return service.Descriptors() == descriptors; }));
  EXPECT_EQ(late.ReceiveAll(), answers);

  const Peer client = Link(service);
  EXPECT_EQ(client.Talk("execute con whole\nexec"), "accepted\n");
  EXPECT_EQ(client.Talk("ute con half\n"), "accepted\n");
  client.Send(std::string(20000, 'x'));  // its end need not arrive
  EXPECT_EQ(client.ReceiveAll(), "refused\n");
}

TEST(Link, AbusiveClientsDelayNobody) {
  Running service;
  const std::size_t descriptors = service.Descriptors();
  std::vector<Peer> silent;
  for (int i = 0; i < 40; ++i) {
    silent.push_back(Link(service));
    silent.back().Send("execute con half a line");
  }
  EXPECT_EQ(Ask(service, "request stopsrv\n"), "value OK\n");
  EXPECT_TRUE(Eventually([&] { return service.Descriptors() <= descriptors + 16; }));
  EXPECT_EQ(silent.front().ReceiveAll(), "");  // the longest silent one has given way

  // Asks on and on and never reads.
  const Peer greedy = Link(service);
  ::fcntl(greedy.Descriptor(), F_SETFL, O_NONBLOCK);
  std::string questions;
  for (int i = 0; i < 200; ++i) questions += "request stopsrv\n";
  EXPECT_TRUE(Eventually([&] { return !greedy.Send(questions) && !greedy.Send(""); }));
  EXPECT_EQ(service.Connect().Talk("$VERSION$:1"), "+OK1.1.03");
  silent.clear();
  EXPECT_TRUE(Eventually([&] { return service.Descriptors() <= descriptors + 1; }));
}

TEST(Link, StopInTheMiddleOfATransfer) {
  for (const char* lines :
       {"execute STOPSRV now\nexecute con x\n", "notify stopsrv\nexecute con x\n"}) {
    Running service;
    const Peer peer = service.Connect();
    ASSERT_EQ(peer.Talk("$FILE$:a.txt|$DATA$|content"), "+OK");
    const Peer other = Link(service);
    EXPECT_EQ(Ask(service, lines), "accepted\n");
    EXPECT_EQ(other.ReceiveAll(), "");
    EXPECT_EQ(service.Wait(), 0);
    EXPECT_EQ(service.Received(), 0U);
    EXPECT_FALSE(fs::exists(service.Path("run/Quorbin/qbstop")));
  }
}

TEST(Link, SocketsOfEarlierRuns) {
  Running service;
  service.Stop(SIGKILL);
  EXPECT_EQ(Ask(service, "request stopsrv\n"), "(error)");  // what a crash leaves
  service.Settings("[Global]\nControl=0\n");
  ASSERT_TRUE(service.Start());
  EXPECT_EQ(Ask(service, "request stopsrv\nexecute stopsrv\nnotify stopsrv\n"),
            "value OK\nrefused\nrefused\n");
  EXPECT_EQ(service.Stop(), 0);

  // Anything else in the socket's place is not ours to remove.
  service.WriteFile("run/Quorbin/qbstop", "");
  ASSERT_TRUE(service.Start());
  EXPECT_EQ(Contents(service.Home / "err"), "Quorbin: no link channel: Address already in use\n");
}

}  // namespace
}  // namespace quorbin::tests
