// The built service, spoken to over TCP.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <sstream>

#include "Service.hpp"

namespace quorbin::tests {
namespace {

const std::vector<std::string> Announce = {"$VERSION$:1", "$FILE$:a.txt", "$FILETYPE$:B", "$DATA$"};

// The service must still take a file after whatever came before.
void ExpectService(const Service& service) {
  const Peer peer = service.Connect();
  EXPECT_EQ(peer.Talk({"$FILE$:after.txt", "$DATA$", "still here", "$EOF$"}), "+OK");
  EXPECT_EQ(peer.Receive(), "(closed)");
  EXPECT_EQ(service.Viewed(), "still here\r\n");
}

TEST(EndToEnd, ConsoleShowsATransfer) {
  Service service;
  ASSERT_TRUE(service.Start());
  service.Signal(SIGUSR1);
  const Peer peer = service.Connect();
  EXPECT_EQ(
      peer.Talk({"$VERSION$:2.0\\\x1B[31m\xC3\xA4\xE4", "$KDOEXT$:-z -y", "$FILE$:/BS2/sample.txt",
                 "$FILETYPE$:B", "$DATA$", "$BUFFLEN$0000000029abcdefghij", "$EOF$"}),
      "+OK");
  EXPECT_EQ(peer.Receive(), "(closed)");
  EXPECT_EQ(service.Viewed(), "abcdefghij");
  EXPECT_EQ(Contents(service.Home / "view.arguments"), "-z -y\n");
  ASSERT_TRUE(service.Shows("started task"));
  std::string out = Contents(service.Home / "out");
  out.resize(out.rfind("started task ") + 13);
  const std::string path = (service.Home / "tmp/f$~.sample.txt").string();
  const std::string view = (service.Home / "view").string();
  const std::string version = R"(2.0\\\x1B[31m)"
                              "\xC3\xA4"
                              R"(\xE4)";
  EXPECT_EQ(out,
            "aktion: listening\npartner: 127.0.0.1\naktion: Connected\nresu: OK\nSatz: "
            "$VERSION$:" +
                version + "\npartner: 127.0.0.1 (Version " + version +
                ")\nSatz: $KDOEXT$:-z -y\nkext: -z -y\nSatz: $FILE$:/BS2/sample.txt\n"
                "fext: (automatic) .txt\nkdo: " +
                view +
                " \"%1\"\nSatz: $FILETYPE$:B\n"
                "ftp: binary\nSatz: $DATA$\ndateiname: " +
                path +
                "\naktion: open binary file\naktion: writing file (B)\n"
                "Satz: Received Bytes:  10\nSatz: Block  1:  29 Bytes\nSatz: +OK: Rest = "
                "0\naktion: executing "
                "command\nkdo: " +
                view + " \"" + path +
                "\" -z -y\nSatz: File written with  10 Bytes\nresu: started task ");
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & ALLPERMS, 0600U);
  EXPECT_EQ(service.Stop(), 0);
  EXPECT_EQ(service.Received(), 0U);
}

TEST(EndToEnd, ExitStatusAndMessages) {
  Service service("exe=*deny\n");
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    ASSERT_TRUE(service.Start());
    EXPECT_EQ(service.Stop(signal), 0);
  }
  ASSERT_TRUE(service.Start());
  Service second;
  fs::rename(second.Home / "run", second.Home / "unused");
  fs::create_symlink(service.Home / "run", second.Home / "run");
  second.Launch();
  EXPECT_EQ(second.Wait(), 1);
  EXPECT_EQ(Contents(second.Home / "err"), "Error while loadingQuorbin: Quorbin already running\n");
  EXPECT_FALSE(Contents(second.Home / "out").size() > 0);

  Service samePort;
  samePort.Port = service.Port;
  samePort.Settings("");
  samePort.Launch();
  EXPECT_EQ(samePort.Wait(), 1);
  EXPECT_EQ(Contents(samePort.Home / "err"), "Error while loadingQuorbin: Can't listen on port " +
                                                 std::to_string(service.Port) +
                                                 ": Address already in use\n");
  ExpectService(service);
  service.Stop(SIGKILL);
  EXPECT_GT(service.Received(), 0U);
  ASSERT_TRUE(service.Start());  // a crash frees the place, and its files are cleared
  EXPECT_EQ(service.Received(), 0U);
}

TEST(EndToEnd, PortOfTheSystemsChoiceIsKept) {
  Service service;
  service.Port = 0;
  service.Settings("");
  service.WriteFile("config/quorbin/classes.reg",
                    "REGEDIT4\n[HKEY_CLASSES_ROOT\\quorbin]\n\"port\"=\"none\"\n");
  ASSERT_TRUE(service.Start());
  const std::string told = Contents(service.Home / "err");
  ASSERT_TRUE(told.starts_with("Quorbin: listening on port ")) << told;
  service.Port = std::stoi(told.substr(told.rfind(' ')));
  ExpectService(service);
  ExpectService(service);
  EXPECT_EQ(Contents(service.Home / "err"), told);
}

TEST(EndToEnd, PeersOfBothFamiliesOneAtATime) {
  Service service;
  ASSERT_TRUE(service.Start());
  const Peer first = service.Connect(true);
  EXPECT_EQ(first.Talk({"$VERSION$:1"}), "+OK1.1.03");
  EXPECT_TRUE(service.Shows("partner: ::1\n"));
  EXPECT_FALSE(Peer::Tcp(service.Port));  // refused by the network, the port still being ours
  const Fd thief(::socket(AF_INET, SOCK_STREAM, 0));
  const int on = 1;
  ::setsockopt(thief.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in address = {AF_INET, htons(static_cast<in_port_t>(service.Port)), {}, {}};
  EXPECT_NE(::bind(thief.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(first.Talk({"$EOF$"}), "(closed)");
  ExpectService(service);
  EXPECT_TRUE(service.Shows("partner: 127.0.0.1\n"));

  service.Settings("[Hosts]\n127.0.0.1=*deny\n");  // the first of repeated keys counts
  ExpectService(service);
  service.WriteFile("quorbin.ini", "[Hosts]\nDefault=*deny\n");  // at the next connection
  EXPECT_EQ(service.Connect().Talk({"$VERSION$:1"}), "(closed)");
  EXPECT_TRUE(service.Shows("resu: Hostaccess denied\n"));
}

TEST(EndToEnd, WhatStandsAtTheOutputPathStaysAsItIs) {
  Service service;
  ASSERT_TRUE(service.Start());
  const fs::path path = service.Home / "tmp/f$~.a.txt";
  service.WriteFile("precious", "precious");
  const std::vector<std::function<void()>> planted = {
      [&] { fs::create_directory(path); },
      [&] { fs::create_symlink(service.Home / "precious", path); },
      [&] { fs::create_hard_link(service.Home / "precious", path); },
      [&] { ::mkfifo(path.c_str(), 0600); },
  };
  for (const auto& plant : planted) {
    plant();
    const Peer peer = service.Connect();
    ASSERT_EQ(peer.Talk({"$FILE$:a.txt", "$DATA$"}), "+OK");
    EXPECT_EQ(peer.Talk({"x", "$EOF$"}), "+OK");
    EXPECT_EQ(service.Viewed(), "x\r\n");
    EXPECT_EQ(Contents(service.Home / "precious"), "precious");
    EXPECT_EQ(service.Stop(), 0);  // deletes links and files, directories stay
    fs::remove_all(service.Home / "tmp");
    fs::create_directory(service.Home / "tmp");
    ASSERT_TRUE(service.Start());
  }
  for (const std::string& name : {std::string("../precious"), std::string(300, 'n') + ".txt",
                                  std::string("/BS2/sub/a.txt"), std::string("z\0.txt", 6)}) {
    const Peer peer = service.Connect();
    ASSERT_EQ(peer.Talk({"$EXT$:.txt", "$FILE$:" + name, "$DATA$", "x", "$EOF$"}), "+OK");
    EXPECT_EQ(service.Viewed(), "x\r\n");
  }
  EXPECT_EQ(Contents(service.Home / "precious"), "precious");
}

TEST(EndToEnd, AGuessedGeneratedNameHelpsNobody) {
  Service service;
  ASSERT_TRUE(service.Start());
  // The first generated name is the same at every start: a pipe planted there is a second failure.
  ::mkfifo((service.Home / "tmp/f$~.temp814724.tmp").c_str(), 0600);
  EXPECT_EQ(service.Connect().Talk({"$EXT$:.txt", "$FILE$:a/b", "$DATA$"}), "(closed)");
  EXPECT_TRUE(service.Shows("dateiname: " + (service.Home / "tmp/f$~.temp814724.tmp").string()));
  EXPECT_TRUE(service.Shows("Satz: Error:  "));
  ExpectService(service);
}

TEST(EndToEnd, NoPlaceForTheFile) {
  Service service;
  // A limit of the file's size fails writes as a full disk does.
  ASSERT_TRUE(service.Start([] {
    const rlimit limit = {.rlim_cur = 65536, .rlim_max = 65536};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }));
  const Peer full = service.Connect();
  ASSERT_EQ(full.Talk(Announce), "+OK");
  full.Send("$BUFFLEN$0000100019" + std::string(100000, 'x'));
  EXPECT_EQ(full.ReceiveAll(), "");
  EXPECT_TRUE(service.Shows("Satz: Error:  27 File too large\n"));
  EXPECT_EQ(service.Received(), 0U);
  ExpectService(service);

  fs::remove_all(service.Home / "tmp");
  const Peer nowhere = service.Connect();
  EXPECT_EQ(nowhere.Talk(Announce), "(closed)");
  EXPECT_TRUE(service.Shows("Satz: Error:  2 No such file or directory\n"));
  fs::create_directory(service.Home / "tmp");
  ExpectService(service);
}

TEST(EndToEnd, PeersThatGoAtEveryStep) {
  Service service;
  ASSERT_TRUE(service.Start());
  const std::size_t descriptors = service.Descriptors();
  std::vector<std::string> steps = Announce;
  steps.insert(steps.end(), {"$BUFFLEN$0000000020x", "$BUFFLEN$0000000030half"});
  for (std::size_t count = 0; count <= steps.size(); ++count) {
    for (const bool reset : {false, true}) {
      Peer peer = service.Connect();
      for (std::size_t step = 0; step < count; ++step) {
        peer.Send(steps[step]);
        if (step < 5) {
          EXPECT_NE(peer.Receive(), "(closed)");
        }
      }
      reset ? peer.Reset() : peer.Close();
    }
  }
  EXPECT_EQ(service.Connect().Talk({"$EOF$"}), "(closed)");
  EXPECT_TRUE(Eventually([&] { return service.Received() == 0; }));
  EXPECT_TRUE(Eventually([&] { return service.Descriptors() == descriptors; }));
  ExpectService(service);
}

TEST(EndToEnd, AChunkIsAllThatWaits) {
  Service service;
  ASSERT_TRUE(service.Start());
  service.Signal(SIGUSR1);
  const Peer peer = service.Connect();
  ASSERT_EQ(peer.Talk({"$FILE$:a.txt", "$FILETYPE$:B", "$DATA$"}), "+OK");
  service.Signal(SIGSTOP);
  // More than a first look at the socket takes.
  for (int i = 0; i < 10; ++i) ASSERT_TRUE(peer.Send(std::string(10000, 'x')));
  peer.Send("$EOF$");
  service.Signal(SIGCONT);
  EXPECT_EQ(peer.ReceiveAll(), "-Fehler: Buffer-length at EOF: -100005");
  EXPECT_TRUE(service.Shows("Satz: Block  1:  100005 Bytes\n"));
  EXPECT_EQ(service.Viewed(), std::string(100000, 'x'));
}

TEST(EndToEnd, PeersThatDontPlayAlong) {
  Service service;
  ASSERT_TRUE(service.Start());
  {  // A byte at a time: each is a message of its own.
    const Peer peer = service.Connect();
    for (const char c : std::string("$EXT$")) EXPECT_EQ(peer.Talk({{c}}), "-PARAM");
  }
  {  // Never reads: its replies are kept up to a limit, then it is let go.
    const Peer peer = service.Connect(false, 1024);
    for (const std::string& message : Announce) {
      peer.Send(message);
      peer.Receive();
    }
    EXPECT_TRUE(Eventually([&] {
      for (int i = 0; i < 1000; ++i) {
        if (!peer.Send("x")) return true;
        std::this_thread::yield();  // or many would be one chunk, with one reply
      }
      return false;
    }));
    EXPECT_TRUE(Eventually([&] { return service.Received() == 0; }));
  }
  {  // A reply comes through although much of what the peer sent was never read.
    const Peer peer = service.Connect();
    ASSERT_EQ(peer.Talk(Announce), "+OK");
    ASSERT_TRUE(peer.Send("$EOF$"));
    for (int i = 0; i < 200; ++i) peer.Send(std::string(10000, 'x'));
    EXPECT_EQ(peer.ReceiveAll(), "+OK");
    EXPECT_EQ(service.Viewed(), "");
  }
  {  // Its half of the connection ends before the reply: what came before counts.
    const Peer peer = service.Connect();
    ASSERT_EQ(peer.Talk(Announce), "+OK");
    peer.Send("$BUFFLEN$0000000025x$EOF$");
    ::shutdown(peer.Descriptor(), SHUT_WR);
    EXPECT_EQ(peer.ReceiveAll(), "+OK");
    EXPECT_EQ(service.Viewed(), "x");
  }
  ExpectService(service);
}

TEST(EndToEnd, ViewersStandAlone) {
  Service service;
  // Its helpers look at themselves: they have inherited what it was given.
  service.WriteFile("look",
                    "#!/bin/sh\nexec > $0.part\nls /proc/self/fd | tr '\\n' ' '\n"
                    "readlink /proc/self/fd/0\nps -o sid= -p $$ | tr -d ' '\necho $$\n"
                    "grep -E 'Sig(Blk|Ign)' /proc/self/status\nmv $0.part $0.ed\n");
  fs::permissions(service.Home / "look", fs::perms::owner_all);
  service.Settings("log=" + (service.Home / "look").string() + "\nexe=x\nnot=/no/such/program\n");
  ASSERT_TRUE(service.Start([] { ::open("/dev/zero", O_RDONLY); }));
  const auto send = [&](const std::string& name, const std::string& line) {
    EXPECT_EQ(service.Connect().Talk({"$FILE$:" + name, "$DATA$", line, "$EOF$"}), "+OK");
  };
  send("a.log", "x");
  ASSERT_TRUE(Eventually([&] { return fs::exists(service.Home / "look.ed"); }));
  std::string pid;
  std::string session;
  std::istringstream seen(Contents(service.Home / "look.ed"));
  std::string descriptors;
  std::getline(seen, descriptors);
  std::getline(seen, session);
  std::getline(seen, pid);
  EXPECT_EQ(descriptors, "0 1 2 3 /dev/null");  // 3 is the listed directory
  EXPECT_EQ(session, pid);
  std::string signals;
  std::getline(seen, signals);
  EXPECT_EQ(signals, "SigBlk:\t0000000000000000");
  std::getline(seen, signals);
  // Up to 31; the C library keeps two above for itself.
  EXPECT_TRUE(signals.ends_with("80000000") || signals.ends_with("00000000")) << signals;
  // No zombie is left.
  EXPECT_TRUE(Eventually([&] { return !fs::exists("/proc/" + pid); }));

  send("a.not", "x");
  EXPECT_TRUE(service.Shows("resu: started task \n"));
  send("p.exe", "#!/bin/sh\necho ran > " + (service.Home / "ran").string() + " #");
  EXPECT_TRUE(Eventually([&] { return Contents(service.Home / "ran") == "ran\n"; }));
}

TEST(EndToEnd, AStoppedReaderOfTheOutputHoldsNothingUp) {
  Service service;
  int ends[2] = {};
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const Fd reader(ends[0]);
  Fd writer(ends[1]);
  service.Launch([&] { ::dup2(writer.Get(), STDOUT_FILENO); });
  writer.Reset();
  const Peer peer = service.Connect();
  service.Signal(SIGUSR1);
  for (int i = 0; i < 40; ++i) {
    ASSERT_EQ(peer.Talk({"$KDOEXT$:" + std::string(5000, 'k')}), "+OK");
  }
  EXPECT_EQ(peer.Talk({"$EOF$"}), "(closed)");
  ExpectService(service);
  EXPECT_EQ(service.Stop(), 0);
}

TEST(EndToEnd, ClosedStreamsGoToNoPeer) {
  Service service;
  service.Launch([] {
    for (const int stream : {0, 1, 2}) ::close(stream);
  });
  ExpectService(service);
  for (const int stream : {0, 1, 2}) EXPECT_EQ(service.Descriptor(stream), "/dev/null");
}

}  // namespace
}  // namespace quorbin::tests
