// The built service, over TCP and over the Unix socket.

#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "Service.hpp"

namespace quorbin::tests {
namespace {

using namespace std::string_literals;

class EndToEnd : public testing::TestWithParam<Way> {
 protected:
  void SetUp() override { Service::NextWay = GetParam(); }
  void TearDown() override { Service::NextWay = Way::Tcp; }
};

INSTANTIATE_TEST_SUITE_P(Over, EndToEnd, testing::Values(Way::Tcp, Way::Local),
                         [](const auto& test) { return test.param == Way::Tcp ? "Tcp" : "Local"; });

const std::string Announce = "$VERSION$:1|$FILE$:a.txt|$FILETYPE$:B|$DATA$";

// The service must still take a file after whatever came before.
void ExpectService(const Service& service) {
  const Peer peer = service.Connect();
  EXPECT_EQ(peer.Talk("$FILE$:after.txt|$DATA$|still here|$EOF$"), "+OK");
  EXPECT_EQ(peer.Receive(), "(closed)");
  EXPECT_EQ(service.Viewed(), "still here\r\n");
}

TEST_P(EndToEnd, ConsoleShowsATransfer) {
  Running service;
  service.Signal(SIGUSR1);
  EXPECT_EQ(service.Connect().Talk("$VERSION$:2\\\x1B[m\xC3\xA4\xE4|$KDOEXT$:-z -y|"
                                   "$FILE$:/BS2/sample.txt|$FILETYPE$:B|$DATA$|"
                                   "$BUFFLEN$0000000029abcdefghij|$EOF$"),
            "+OK");
  EXPECT_EQ(service.Viewed(), "abcdefghij");
  EXPECT_EQ(Contents(service.Home / "view.arguments"), "-z -y\n");
  ASSERT_TRUE(service.Shows("started task "));
  std::string out = Without(Contents(service.Home / "out"), service.Home);
  out.resize(out.rfind("started task ") + 13);
  const std::string partner = "partner: " + service.PeerAddress();
  EXPECT_EQ(out,
            "aktion: listening\n" + partner +
                "\naktion: Connected\nresu: OK\n"
                "Satz: $VERSION$:2\\\\\\x1B[m\xC3\xA4\\xE4\n" +
                partner +
                " (Version 2\\\\\\x1B[m\xC3\xA4\\xE4)\n"
                "Satz: $KDOEXT$:-z -y\nkext: -z -y\nSatz: $FILE$:/BS2/sample.txt\n"
                "fext: (automatic) .txt\nkdo: /view \"%1\"\nSatz: $FILETYPE$:B\nftp: binary\n"
                "Satz: $DATA$\ndateiname: /tmp/f$~.sample.txt\naktion: open binary file\n"
                "aktion: writing file (B)\nSatz: Received Bytes:  10\nSatz: Block  1:  29 Bytes\n"
                "Satz: +OK: Rest = 0\naktion: executing command\n"
                "kdo: /view \"/tmp/f$~.sample.txt\" -z -y\nSatz: File written with  10 Bytes\n"
                "resu: started task ");
  EXPECT_EQ(fs::status(service.Path("tmp/f$~.sample.txt")).permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
}

TEST(Port, ExitStatusAndMessages) {
  Service service;
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    ASSERT_TRUE(service.Start());
    EXPECT_EQ(service.Stop(signal), 0);
  }
  ASSERT_TRUE(service.Start());
  // During a connection the service does not listen, but the port is still its own.
  const Peer peer = service.Connect();
  EXPECT_EQ(peer.Talk("$VERSION$:1"), "+OK1.1.03");
  const std::pair<std::string, std::string> rows[] = {
      {"run", "Quorbin already running"},
      {"config",
       "Can't listen on port " + std::to_string(service.Port) + ": Address already in use"},
  };
  for (const auto& [runtimeDirectory, message] : rows) {
    Service second("[Global]\nPort=" + std::to_string(service.Port) + "\n");
    const std::string directory = service.Path(runtimeDirectory);
    second.ExpectNoStart(message, [&] { ::setenv("XDG_RUNTIME_DIR", directory.c_str(), 1); });
  }
  EXPECT_EQ(peer.Talk("$EOF$"), "(closed)");
  ExpectService(service);
}

// Tries to bind the port to every address, under every option that shares one. 1: an attempt was
// not refused. The process ends with it, and so do the addresses.
int BindManyTimes(int port) {
  std::vector<addrinfo*> addresses;
  for (const char* address : {"0.0.0.0", "127.0.0.1", "::", "::1"}) {
    ::getaddrinfo(address, std::to_string(port).c_str(), nullptr, &addresses.emplace_back());
  }
  const std::vector<int> shares[] = {{SO_REUSEADDR}, {SO_REUSEPORT}, {SO_REUSEADDR, SO_REUSEPORT}};
  const int on = 1;
  for (std::size_t attempt = 0; attempt < 200000; ++attempt) {
    const addrinfo& address = *addresses[attempt % 4];
    const Fd socket(::socket(address.ai_family, SOCK_STREAM, 0));
    for (const int option : shares[attempt / 4 % 3]) {
      ::setsockopt(socket.Get(), SOL_SOCKET, option, &on, sizeof on);
    }
    if (::bind(socket.Get(), address.ai_addr, address.ai_addrlen) == 0) return 1;
    if (errno != EADDRINUSE) return 1;
  }
  return 0;
}

TEST(Port, NoOtherUserTakesThePort) {
  if (::geteuid() != 0) GTEST_SKIP() << "no rights to become another user";
  Running service;
  const pid_t other = StartAsNobody([&] { return BindManyTimes(service.Port); });
  int status = -1;
  // Each connection stops the listener and opens it again.
  EXPECT_TRUE(Eventually([&] {
    for (int i = 0; i < 100; ++i) service.Connect().Talk("$EOF$");
    return ::waitpid(other, &status, WNOHANG) == other;
  }));
  EXPECT_EQ(status, 0);
  ExpectService(service);
}

TEST(Port, StartsOverWhatAnEarlierRunHasLeft) {
  Running service;
  // The side that closes first remembers the connection; the other one is still open.
  for (int i = 0; i < 3; ++i) EXPECT_EQ(service.Connect().Talk("$EOF$"), "(closed)");
  const Peer peer = service.Connect();
  EXPECT_EQ(peer.Talk(Announce + "|$BUFFLEN$0000000020x"), "+OK");
  service.Stop(SIGKILL);
  EXPECT_EQ(service.Received(), 1U);
  ASSERT_TRUE(service.Start());
  EXPECT_EQ(service.Received(), 0U);
  ExpectService(service);
  ExpectService(service);
}

// A dropped request comes again after a second; a refused one costs no time.
TEST_P(EndToEnd, ACrowdIsRefusedAtOnce) {
  Running service;
  std::atomic<int> dropped = 0;
  const auto send = [&] {
    EXPECT_TRUE(Eventually([&] {
      const auto start = std::chrono::steady_clock::now();
      const Peer peer = service.TryToConnect();
      if (std::chrono::steady_clock::now() - start > std::chrono::milliseconds(900)) ++dropped;
      return peer && peer.Talk("$VERSION$:1") == "+OK1.1.03";
    }));
  };
  constexpr int senders = 100;
  std::vector<std::jthread> crowd;
  for (int i = 0; i < senders; ++i) crowd.emplace_back(send);
  crowd.clear();  // waits for their ends
  // The system itself may drop the one that it looks at while the listener is being stopped.
  EXPECT_LE(dropped, senders / 20);
}

TEST(Port, OneAddressAlone) {
  const std::tuple<std::string, bool, bool> rows[] = {
      // Listen, reached over IPv4, over IPv6
      {"127.0.0.1", true, false}, {"0.0.0.0", true, false}, {"::1", false, true},
      {"::", false, true},        {"", true, true},
  };
  for (const auto& [listen, overV4, overV6] : rows) {
    SCOPED_TRACE(listen);
    Running service("[Global]\nListen=" + listen + "\n");
    EXPECT_EQ(static_cast<bool>(Peer::Tcp(service.Port)), overV4);
    // A connection before is not over at once.
    const Peer peer = overV6 ? service.Connect(true) : Peer::Tcp(service.Port, true);
    EXPECT_EQ(static_cast<bool>(peer), overV6);
  }
}

TEST(Port, WrongSettingsEndTheStart) {
  for (const std::string& named :
       {"Listen=localhost"s, "Listen=10.1"s, "Listen=*LOCAL"s, "Listen=::1 ::2"s,
        "Parameters=deny"s, "Port=65536 (0 to 65535)"s, "Port=-1 (0 to 65535)"s}) {
    Service service("[Global]\n" + named.substr(0, named.find(" (")) + "\n");
    service.ExpectNoStart("Wrong value in the section Global of " + service.Path("quorbin.ini") +
                          ": " + named);
  }
  Service service("[Global]\nListen=192.0.2.1\n");  // of no machine
  service.ExpectNoStart("Can't listen on port " + std::to_string(service.Port) +
                        " of 192.0.2.1: Cannot assign requested address");
}

TEST_P(EndToEnd, OneAtATimeAndADeniedPeerReachesNothing) {
  Running service("[Hosts]\n" + Service().PeerAddress() + "=*deny\n");
  const Peer denied = service.Connect();
  ASSERT_TRUE(service.Shows("aktion: Connected\n"));
  EXPECT_FALSE(service.TryToConnect());
  EXPECT_EQ(denied.Talk("$FILE$:a.txt"), "(closed)");
  EXPECT_TRUE(service.Shows("resu: Hostaccess denied\n"));
  EXPECT_EQ(service.Received(), 0U);
  service.Settings("");
  ExpectService(service);
}

TEST(Local, OnlyTheUserAndNoPort) {
  Service service("", Way::Local);
  fs::create_directory(service.Home / "run/Quorbin");
  service.WriteFile("run/Quorbin/in", "");  // anything else there is not removed
  service.ExpectNoStart("Can't listen on *local: Address already in use");
  fs::remove(service.Home / "run/Quorbin/in");
  ASSERT_TRUE(service.Start());
  service.Stop(SIGKILL);  // leaves its socket
  ASSERT_TRUE(service.Start());
  EXPECT_FALSE(Peer::Tcp(service.Port));
  EXPECT_EQ(fs::status(service.Path("run/Quorbin/in")).permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
  if (::geteuid() == 0) {
    // Even where the permissions admit everybody, the peer's user decides.
    for (const char* opened : {"", "run", "run/Quorbin", "run/Quorbin/in"}) {
      fs::permissions(service.Home / opened, fs::perms::all);
    }
    const pid_t other = StartAsNobody([&] {
      const Peer peer = service.TryToConnect();
      if (!peer) return 2;
      peer.Send("$VERSION$:1");
      return peer.ReceiveAll().starts_with("+OK") ? 3 : 0;
    });
    int status = -1;
    ::waitpid(other, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Contents(service.Home / "out").find("partner"), std::string::npos);
  }
  ExpectService(service);
  EXPECT_EQ(service.Stop(), 0);
  EXPECT_FALSE(fs::exists(service.Path("run/Quorbin/in")));
}

TEST_P(EndToEnd, KeepsNoRightsAndLeavesNoCore) {
  Running service("", [] {
    const rlimit cores = {.rlim_cur = 4096, .rlim_max = 4096};
    ::setrlimit(RLIMIT_CORE, &cores);
  });
  ExpectService(service);
  const std::string status = Contents(service.ProcessFolder() / "status");
  for (const char* set : {"CapPrm", "CapEff", "CapAmb"}) {
    EXPECT_NE(status.find(std::string(set) + ":\t0000000000000000\n"), status.npos) << status;
  }
  const std::string limits = Contents(service.ProcessFolder() / "limits");
  EXPECT_NE(limits.find("Max core file size        0  "), limits.npos) << limits;
}

TEST(Port, PortOfTheSystemsChoiceIsKept) {
  Service service("[Global]\nPort=0\n");
  service.WriteFile("config/quorbin/classes.reg",
                    "REGEDIT4\n[HKEY_CLASSES_ROOT\\quorbin]\n\"port\"=\"none\"\n");
  ASSERT_TRUE(service.Start());
  const std::string message = Contents(service.Home / "err");
  ASSERT_TRUE(message.starts_with("Quorbin: listening on port ")) << message;
  service.Port = std::stoi(message.substr(message.rfind(' ')));
  ExpectService(service);
  ExpectService(service);
  EXPECT_EQ(Contents(service.Home / "err"), message);
}

TEST_P(EndToEnd, WhatIsAtTheOutputPathStaysAsItIs) {
  Running service;
  const fs::path precious = service.Home / "precious";
  const std::string planted = service.Path("tmp/f$~.");
  service.WriteFile("precious", "precious");
  fs::create_directory(planted + "folder");
  // Generated names are the same at every start. What is planted there is a second failure.
  for (const std::string& name : {"pipe"s, "temp814724.tmp"s}) {
    ::mkfifo((planted + name).c_str(), 0600);
  }
  for (const std::string& name : {"link"s, "other"s, "temp135477.tmp"s}) {
    fs::create_symlink(service.Home / "view", planted + name);
  }
  for (const std::string& name : {"name"s, "temp905792.tmp"s}) {
    fs::create_hard_link(precious, planted + name);
  }
  for (const char* generated : {"temp814724.tmp", "temp135477.tmp", "temp905792.tmp"}) {
    EXPECT_EQ(service.Connect().Talk("$EXT$:.txt|$FILE$:a/b|$DATA$"), "(closed)");
    EXPECT_TRUE(service.Shows("dateiname: " + planted + generated + "\nSatz: Error:  "));
  }
  for (const std::string& name : {"folder"s, "link"s, "name"s, "pipe"s, std::string(300, 'n')}) {
    ASSERT_EQ(service.Connect().Talk("$EXT$:.txt|$FILE$:" + name + "|$DATA$|x|$EOF$"), "+OK");
    EXPECT_EQ(service.Viewed(), "x\r\n");
    EXPECT_EQ(Contents(precious), "precious");
  }
  EXPECT_EQ(service.Stop(), 0);  // deletes links and files alone
  EXPECT_EQ(service.Received(), 2U);
}

TEST_P(EndToEnd, NoPlaceForTheFile) {
  // A limit of the file's size fails writes as a full disk does.
  Running service("", [] {
    const rlimit limit = {.rlim_cur = 65536, .rlim_max = 65536};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  });
  const Peer full = service.Connect();
  ASSERT_EQ(full.Talk(Announce), "+OK");
  full.Send("$BUFFLEN$0000100019" + std::string(100000, 'x'));
  EXPECT_EQ(full.ReceiveAll(), "");
  ExpectService(service);
}

TEST_P(EndToEnd, PeersThatGoAtEveryStep) {
  Running service;
  const std::size_t descriptors = service.Descriptors();
  const std::string steps = Announce + "|$BUFFLEN$0000000020x|$BUFFLEN$0000000020y";
  for (std::size_t bar = 0; bar != steps.npos; bar = steps.find('|', bar + 1)) {
    for (const bool reset : {false, true}) {
      Peer peer;
      ASSERT_TRUE(Eventually([&] {  // one that comes while another is let in is reset
        peer = service.Connect();
        return bar == 0 || peer.Talk(steps.substr(0, bar)).starts_with("+OK");
      }));
      peer.Send("$BUFFLEN$0000000030half");
      const linger end = {.l_onoff = reset, .l_linger = 0};
      ::setsockopt(peer.Descriptor(), SOL_SOCKET, SO_LINGER, &end, sizeof end);
    }
  }
  EXPECT_TRUE(Eventually([&] { return service.Received() == 0; }));
  EXPECT_TRUE(Eventually([&] { return service.Descriptors() == descriptors; }));
  ExpectService(service);
}

TEST_P(EndToEnd, AChunkIsAllThatWaits) {
  Running service;
  const Peer peer = service.Connect();
  ASSERT_EQ(peer.Talk("$FILE$:a.txt|$FILETYPE$:B|$DATA$"), "+OK");
  service.Signal(SIGSTOP);
  // More than a first look at the socket takes.
  for (int i = 0; i < 10; ++i) ASSERT_TRUE(peer.Send(std::string(10000, 'x')));
  peer.Send("$EOF$");
  service.Signal(SIGCONT);
  EXPECT_EQ(peer.ReceiveAll(), "-Fehler: Buffer-length at EOF: -100005");
  EXPECT_EQ(service.Viewed(), std::string(100000, 'x'));
}

TEST_P(EndToEnd, AReplyOutlivesWhatWasNeverRead) {
  Running service;
  const Peer peer = service.Connect();
  ASSERT_EQ(peer.Talk(Announce), "+OK");
  ASSERT_TRUE(peer.Send("$EOF$"));
  for (int i = 0; i < 200; ++i) peer.Send(std::string(10000, 'x'));
  EXPECT_EQ(peer.ReceiveAll(), "+OK");
  EXPECT_EQ(service.Viewed(), "");
}

TEST_P(EndToEnd, ViewersInheritNothing) {
  Service service;
  // Helpers that inherit its descriptors and its session print these, and then comes its number.
  // Blocked and ignored signals, up to 28, are read without it: a shell clears some.
  service.WriteScript("look",
                      "exec > $0.part\nls -x /proc/self/fd\nreadlink /proc/self/fd/0\n"
                      "[ $(ps -o sid= -p $$) = $$ ] && echo own\n"
                      "mv $0.part $0.ed\necho $$ > $0.number\n");
  service.Settings("log=" + service.Path("look") + "\nexe=x\nnot=/no/such/program\n" +
                   "sig=sed -En \"s/^Sig(Blk|Ign).*(.{7})$/\\1 \\2/p\" /proc/self/status\n");
  ASSERT_TRUE(service.Start([] { ::open("/dev/zero", O_RDONLY); }));
  const auto send = [&](const std::string& name, const std::string& line) {
    EXPECT_EQ(service.Connect().Talk("$FILE$:" + name + "|$DATA$|" + line + "|$EOF$"), "+OK");
  };
  send("a.log", "x");
  ASSERT_TRUE(Eventually([&] { return !Contents(service.Home / "look.number").empty(); }));
  // 3 is the listed directory.
  EXPECT_EQ(Contents(service.Home / "look.ed"), "0  1  2  3\n/dev/null\nown\n");
  const int viewer = std::stoi(Contents(service.Home / "look.number"));
  EXPECT_TRUE(Eventually([&] { return !fs::exists("/proc/" + std::to_string(viewer)); }));

  send("a.sig", "x");
  EXPECT_TRUE(service.Shows("Blk 0000000\nIgn 0000000\n"));
  send("a.not", "x");
  EXPECT_TRUE(service.Shows("resu: started task \n"));
  send("p.exe", "#!/bin/sh\necho ran > " + service.Path("ran") + " #");
  EXPECT_TRUE(Eventually([&] { return Contents(service.Home / "ran") == "ran\n"; }));
}

TEST_P(EndToEnd, AStoppedReaderOfTheOutputHoldsNothingUp) {
  Service service;
  const std::string pipe = service.Path("pipe");
  ::mkfifo(pipe.c_str(), 0600);
  service.Launch([&] { ::dup2(::open(pipe.c_str(), O_RDWR), STDOUT_FILENO); });
  const Peer peer = service.Connect();
  service.Signal(SIGUSR1);
  const std::string message = "$KDOEXT$:" + std::string(5000, 'k');
  for (int i = 0; i < 40; ++i) ASSERT_EQ(peer.Talk(message), "+OK");
  EXPECT_EQ(peer.Talk("$EOF$"), "(closed)");
  ExpectService(service);
}

TEST_P(EndToEnd, NoPeerGetsAClosedStream) {
  Service service;
  service.Launch([] { ::close_range(STDIN_FILENO, STDERR_FILENO, 0); });
  ExpectService(service);
  for (const char* stream : {"0", "1", "2"}) {
    EXPECT_EQ(fs::read_symlink(service.ProcessFolder() / "fd" / stream), "/dev/null");
  }
}

}  // namespace
}  // namespace quorbin::tests
