// The link channel of the built service, through its client and through a raw socket.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Service.hpp"

namespace quorbin::tests {
namespace {

Peer Link(const Service& service) {
  sockaddr_un address = {AF_UNIX, {}};
  const std::string path = (service.Home / "run/Quorbin/qbstop").string();
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return Peer(descriptor);
  }
  ::close(descriptor);
  return {};
}

// Runs quorbin-link; returns its output and its exit status.
std::string Client(const Service& service, const std::string& arguments) {
  const std::string command = "XDG_RUNTIME_DIR='" + (service.Home / "run").string() +
                              "' " QUORBIN_LINK " " + arguments + " 2>/dev/null";
  FILE* output = ::popen(command.c_str(), "r");
  std::string text;
  for (int c = std::fgetc(output); c != EOF; c = std::fgetc(output)) text += static_cast<char>(c);
  return text + std::to_string(WEXITSTATUS(::pclose(output)));
}

TEST(Link, AdmitsAndDismissesPeers) {
  Service service;
  EXPECT_EQ(Client(service, "request stopsrv"), "2");
  service.Settings("[global]\nControl=0\n");
  service.WriteFile("quorbin.ini", "[Global]\nControl=1\nPort=" + std::to_string(service.Port) +
                                       "\n[Extensions]\ntxt=" + (service.Home / "view").string() +
                                       " \"%1\"\n");
  ASSERT_TRUE(service.Start());
  const auto connect = [&] { return service.Connect().Talk({"$VERSION$:1"}); };
  EXPECT_EQ(connect(), "(closed)");
  EXPECT_EQ(Client(service, "request stopsrv"), "OK\n0");
  EXPECT_EQ(Client(service, "request other").back(), '1');
  EXPECT_EQ(Client(service, "execute 'dis 127.0.0.1'").back(), '1');
  EXPECT_EQ(Client(service, "request stopsrv"), "OK\n0");
  EXPECT_EQ(Client(service, "execute 'con 127.0.0.1'").back(), '0');
  EXPECT_EQ(Client(service, "request stopsrv"), "con\n0");

  const Peer peer = service.Connect();
  ASSERT_EQ(peer.Talk({"$FILE$:a.txt", "$DATA$", "one"}), "+OK");
  EXPECT_EQ(Client(service, "execute 'dis 127.0.0.1'").back(), '0');  // from the next one on
  EXPECT_EQ(peer.Talk({"two$EOF$"}), "+OK");
  EXPECT_EQ(service.Viewed(), "one\r\ntwo\r\n");
  EXPECT_EQ(connect(), "(closed)");
  EXPECT_EQ(Client(service, "execute 'con 127.0.0.1'").back(), '0');
  EXPECT_EQ(connect(), "+OK1.1.03");
}

TEST(Link, LinesOverARawSocket) {
  Service service;
  ASSERT_TRUE(service.Start());
  struct stat status {};
  ASSERT_EQ(::stat((service.Home / "run/Quorbin").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & ALLPERMS, 0700U);
  ASSERT_EQ(::stat((service.Home / "run/Quorbin/qbstop").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 077U, 0U);

  const Peer client = Link(service);
  const std::pair<std::string, std::string> rows[] = {
      {"request stopsrv\n", "value OK\n"},
      {"execute con 10.0.0.7\nexecute dis 10.0.0.7\nrequest stopsrv\n",
       "accepted\naccepted\nvalue dis\n"},
      {"execute\nexecute \nnotify other\nrequest\n\nexecute con\n",
       "refused\nrefused\nrefused\nrefused\nrefused\nrefused\n"},
      {"execute con " + std::string(4096 - 12, 'x') + "\n", "accepted\n"},
  };
  for (const auto& [lines, answers] : rows) {
    client.Send(lines);
    std::string got;
    while (got.size() < answers.size()) got += client.Receive();
    EXPECT_EQ(got, answers) << lines;
  }
  client.Send("exec");
  client.Send("ute con half\n");
  EXPECT_EQ(client.Receive(), "accepted\n");
  client.Send(std::string(20000, 'x'));  // its end need not come
  EXPECT_EQ(client.ReceiveAll(), "refused\n");
}

TEST(Link, AbusiveClientsDelayNobody) {
  Service service;
  ASSERT_TRUE(service.Start());
  const std::size_t descriptors = service.Descriptors();
  std::vector<Peer> silent;
  for (int i = 0; i < 40; ++i) {
    silent.push_back(Link(service));
    silent.back().Send("execute con half a line");
  }
  EXPECT_EQ(Client(service, "request stopsrv"), "OK\n0");
  EXPECT_TRUE(Eventually([&] { return service.Descriptors() <= descriptors + 16; }));
  EXPECT_EQ(silent.front().ReceiveAll(), "");  // the longest silent one has given way

  // Asks without end and never reads.
  const Peer greedy = Link(service);
  ::fcntl(greedy.Descriptor(), F_SETFL, O_NONBLOCK);
  std::string questions;
  for (int i = 0; i < 200; ++i) questions += "request stopsrv\n";
  EXPECT_TRUE(Eventually([&] {
    greedy.Send(questions);
    return ::send(greedy.Descriptor(), "", 0, MSG_NOSIGNAL) < 0 ||
           (::send(greedy.Descriptor(), "\n", 1, MSG_NOSIGNAL) < 0 && errno == EPIPE);
  }));
  EXPECT_EQ(service.Connect().Talk({"$VERSION$:1"}), "+OK1.1.03");
  silent.clear();
  EXPECT_TRUE(Eventually([&] { return service.Descriptors() <= descriptors + 1; }));
}

TEST(Link, StopInTheMiddleOfATransfer) {
  for (const bool execute : {true, false}) {
    Service service;
    ASSERT_TRUE(service.Start());
    const Peer peer = service.Connect();
    ASSERT_EQ(peer.Talk({"$FILE$:a.txt", "$DATA$", "content"}), "+OK");
    EXPECT_EQ(service.Received(), 1U);
    const Peer other = Link(service);
    const Peer client = Link(service);
    client.Send(execute ? "execute STOPSRV now\nexecute con x\n" : "notify stopsrv\n");
    EXPECT_EQ(client.ReceiveAll(), "accepted\n");
    EXPECT_EQ(other.ReceiveAll(), "");
    EXPECT_EQ(service.Wait(), 0);
    EXPECT_EQ(service.Received(), 0U);
    EXPECT_FALSE(fs::exists(service.Home / "run/Quorbin/qbstop"));
    EXPECT_EQ(Client(service, "request stopsrv"), "2");
  }
}

TEST(Link, SocketsOfEarlierRuns) {
  Service service;
  ASSERT_TRUE(service.Start());
  service.Stop(SIGKILL);
  EXPECT_FALSE(Link(service));  // what a crash leaves
  ASSERT_TRUE(service.Start());
  EXPECT_EQ(Client(service, "request stopsrv"), "OK\n0");
  EXPECT_EQ(service.Stop(), 0);

  service.WriteFile("quorbin.ini", "[Global]\nControl=0\nPort=" + std::to_string(service.Port));
  ASSERT_TRUE(service.Start());
  EXPECT_EQ(Client(service, "request stopsrv"), "OK\n0");
  EXPECT_EQ(Client(service, "execute stopsrv").back(), '1');
  EXPECT_EQ(Client(service, "notify stopsrv").back(), '1');
  EXPECT_EQ(service.Stop(), 0);

  // Something else in the socket's place is not ours to remove.
  service.WriteFile("run/Quorbin/qbstop", "");
  ASSERT_TRUE(service.Start());
  EXPECT_EQ(Contents(service.Home / "err"), "Quorbin: no link channel: Address already in use\n");
  EXPECT_EQ(service.Stop(), 0);
}

}  // namespace
}  // namespace quorbin::tests
