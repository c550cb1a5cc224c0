// The built clients against small services within the test, and all documented senders against the
// real one.

#include <poll.h>
#include <pwd.h>

#include <random>

#include "Protocol.hpp"
#include "Service.hpp"

namespace quorbin::tests {
namespace {

using Strings = std::vector<std::string>;
using namespace std::string_literals;

struct ToolsTest : testing::Test {
  ToolsTest() { std::filesystem::current_path(mkdtemp(folder.data())); }
  ~ToolsTest() override { std::filesystem::remove_all(folder); }

  // Runs a shell command, and meanwhile serves connections to the address, one after the other. In
  // the command $P is the port that the system picks for an IPv4 address, and $S is quorbin-send to
  // it. Returns the exit status, a colon, and the output on both streams.
  template <class Address = sockaddr_in>
  static std::string Run(const std::string& command, const std::function<void(int)>& serve,
                         Address address = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}}) {
    socklen_t size = sizeof address;
    auto* const general = reinterpret_cast<sockaddr*>(&address);
    const Fd listener(socket(general->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(bind(listener.Get(), general, size), 0);
    EXPECT_EQ(listen(listener.Get(), 5), 0);
    std::string script = "export LC_ALL=C; ";
    if constexpr (requires { address.sin_port; }) {
      getsockname(listener.Get(), general, &size);
      script +=
          "P=" + std::to_string(ntohs(address.sin_port)) + "; S='" QUORBIN_SEND " --port '$P; ";
    }
    std::thread server([&] {
      while (const Fd peer{accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC)}) {
        serve(peer.Get());
      }
    });
    const Outcome outcome = RunShell(script + command);
    shutdown(listener.Get(), SHUT_RDWR);
    server.join();
    return std::to_string(outcome.Status) + ":" + outcome.Output;
  }

  // Runs the command against a receiver that accepts every chunk. But one that begins with `odd`
  // draws the reply, or, if that is "close", the end of the connection.
  std::string Send(const std::string& command, const std::string& odd = "\n",
                   const std::string& oddReply = "") {
    chunks = "";
    return Run(command, [&, this](int peer) { Receive(peer, odd, oddReply); });
  }
  void Receive(int peer, const std::string& odd, const std::string& oddReply) {
    std::string bytes(1 << 16, ' ');
    // Unread bytes make the close a reset, as for a sender that waits in vain.
    if (std::exchange(resetNext, false) && recv(peer, bytes.data(), 1, MSG_PEEK) == 1) return;
    for (ssize_t n; (n = recv(peer, bytes.data(), bytes.size(), 0)) > 0;) {
      const std::string chunk = bytes.substr(0, static_cast<std::size_t>(n));
      chunks += chunk + "|";
      const std::string_view reply = chunk.starts_with(odd) ? oddReply : Reply::Ok;
      if (reply == "close") return;
      send(peer, reply.data(), reply.size(), MSG_NOSIGNAL);
      if (chunk.ends_with(Token::Eof)) return;
    }
  }

  std::string folder = testing::TempDir() + "toolsXXXXXX";
  bool resetNext = false;
  std::string chunks;  // of all connections
};

TEST_F(ToolsTest, BinaryMessagesInOrder) {
  std::ofstream("a name") << "0123456789abc";
  EXPECT_EQ(Send("$S --ext .x --prefix ' p ' --suffix 's\x15' --buffer 29 'a name'"), "0:");
  EXPECT_TRUE(chunks.starts_with("$VERSION$:") && !chunks.starts_with("$VERSION$:|"));
  EXPECT_EQ(chunks.substr(chunks.find('|')),
            "|$EXT$:.x|$FILETYPE$:B|$KDOPRF$: p |$KDOEXT$:s\x15\x15|$FILE$:a name|$DATA$|"
            "$BUFFLEN$00000000290123456789|$BUFFLEN$0000000022abc|$EOF$|");
}

TEST_F(ToolsTest, ContentArrives) {
  const std::string big(300000, '\0'), longest(32768, 'x');
  const std::string markers = "a$BUFFLEN$0000000001$EOF$$EOF$x$EOF$";
  const Strings rows[] = {
      {"", "", ""},
      {"", big, big},
      {"--buffer 20", markers, markers},
      {"--buffer 44", markers, markers},
      {"--no-version", big + "$EO", big + "$EO"},
      {"--text", "a\r\n\n x$EOF$y \nlast\r", "a\r\n \r\n x$EOF$y \r\nlast\r\r\n"},
      {"--text --no-version", longest + "\r\n", longest + "\r\n"},
  };
  const Running service;
  const std::string send = QUORBIN_SEND " --ext .txt --port " + std::to_string(service.Port) + " ";
  for (const Strings& row : rows) {
    std::ofstream("f") << row[1];
    for (const std::string& command : {"cat f | " + send + row[0] + " -", send + row[0] + " f"}) {
      EXPECT_EQ(RunShell(command).Output, "");
      EXPECT_TRUE(service.Viewed() == row[2]) << command;
    }
  }
  EXPECT_TRUE(service.Shows("/tmp/f$~.stdin\n"));
}

TEST_F(ToolsTest, ExtensionOfTheName) {
  const Strings rows[] = {
      // arguments, what the service gets of the extension
      {"page.html", "$EXT$:.html|"},
      {"--name c.tar.c page.html", "$EXT$:.c|"},
      {"--ext pdf page.html", "$EXT$:.pdf|"},
      {"--name a.txt page.html", ""},
      {"--name '*POSIX(/x/a.html)' page.html", "$EXT$:.html|"},
      {"--name '*POSIX(/x/a.txt)' page.html", ""},
  };
  std::ofstream("page.html") << "";
  for (const Strings& row : rows) {
    EXPECT_EQ(Send("$S " + row[0]), "0:");
    const std::size_t head = chunks.find('|') + 1;
    EXPECT_EQ(chunks.substr(head, chunks.find("$FILETYPE$:B") - head), row[1]) << row[0];
  }
}

TEST_F(ToolsTest, RefusalsInWords) {
  const std::string cut = "-Fehler: Buffer-length at EOF: -7";
  const Strings rows[] = {
      // options, content, chunk, reply to it, sentence
      {"", "", "$VERSION$:", "close",
       "the host is not allowed to connect (the service closed the connection without a reply)"},
      {"", "", "$EXT$:", "-EXT",
       "the service denies the extension .html, taken from the name, or has no viewer for it; try "
       "another with --ext (reply \"-EXT\")"},
      {"--ext pdf", "", "$DATA$", "-KDO",
       "the service denies the extension .pdf or has no viewer for it; try another with --ext "
       "(reply \"-KDO\")"},
      {"", "", "$EOF$", cut,
       "the file is cut short at an end marker in it, or has changed meanwhile (reply \"" + cut +
           "\")"},
      {"--text", "a\nb\n", "a", "+OK\x1B\xE4", "unexpected reply (reply \"+OK\\x1B\\xE4\")"},
  };
  for (const Strings& row : rows) {
    std::ofstream("f.html") << row[1];
    EXPECT_EQ(Send("$S " + row[0] + " f.html", row[2], row[3]),
              "1:quorbin-send: f.html: " + row[4] + "\n");
    EXPECT_EQ(chunks.ends_with("|$EOF$|"), row[2] == Token::Eof);
  }
}

TEST_F(ToolsTest, WhatCannotBeSentIsFoundBeforeConnecting) {
  const std::string piece((1 << 18) - 2, 'x'), longLine(32769, 'x');
  const Strings rows[] = {
      // options, content, sentence
      {"--text", "a\n$EOF$b\n", "line 2 begins or ends with $EOF$; send it as binary"},
      {"--text", "a\nb$EOF$", "line 2 begins or ends with $EOF$; send it as binary"},
      {"--text", longLine, "line 1 is longer than 32768 bytes; send it as binary"},
      {"--no-version", piece + "$EOF$b", "the content holds $EOF$; leave out --no-version"},
      {"--no-version", piece + "$BUFFLEN$", "the content holds $BUFFLEN$; leave out --no-version"},
      {"--no-version", "b$EOF", "the content holds $EOF$; leave out --no-version"},
      {"--name 'a '", "", "the name ends in a blank; give another with --name"},
      {"--name a.", "", "the name has no extension, which chooses the viewer; give one with --ext"},
  };
  for (const Strings& row : rows) {
    std::ofstream("f.txt") << row[1];
    EXPECT_EQ(Send("$S " + row[0] + " f.txt"), "1:quorbin-send: f.txt: " + row[2] + "\n");
    EXPECT_EQ(chunks, "");
    const std::string piped = "cat f.txt | $S --name f.txt " + row[0] + " -";
    EXPECT_TRUE(row[0].starts_with("--name") ||
                Send(piped) == "1:quorbin-send: -: " + row[2] + "\n");
    EXPECT_EQ(chunks, "");
  }
}

TEST_F(ToolsTest, GoesOnWithTheNextFile) {
  std::ofstream("f.txt") << "one";
  std::ofstream("g.txt") << "two";
  resetNext = true;
  EXPECT_EQ(Send("$S f.txt x g.txt"), "1:quorbin-send: x: No such file or directory\n");
  const std::string version = chunks.substr(0, chunks.find('|') + 1);
  EXPECT_EQ(Without(chunks, version),
            "$FILETYPE$:B|$FILE$:f.txt|$DATA$|$BUFFLEN$0000000022one|$EOF$|"
            "$FILETYPE$:B|$FILE$:g.txt|$DATA$|$BUFFLEN$0000000022two|$EOF$|");
  EXPECT_TRUE(Send("$S --name n.txt f.txt g.txt")
                  .starts_with("105:quorbin-send: --name: goes with one file only\n"));
}

TEST_F(ToolsTest, WaitsForABusyService) {
  std::ofstream("f.txt") << "one";
  const std::string refused =
      "75:quorbin-send: f.txt: connection refused: the service does not run, or it serves another "
      "sender";
  // Nothing listens on the other address.
  EXPECT_EQ(Send("$S --host 127.0.0.2 --wait 0 f.txt"), refused + "\n");
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_EQ(Send("$S --host 127.0.0.2 --wait 1 f.txt"), refused + "; tried for 1 s\n");
  EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::seconds(1));

  // A terminal shows it, and an interrupt leaves it with an empty line.
  const std::string shown = Send(
      "script -qec \"timeout --foreground --preserve-status -s INT 0.5"
      " $S --host 127.0.0.2 f.txt\" /dev/null </dev/null");
  EXPECT_TRUE(shown.starts_with("130:f.txt\r\n\rwaiting for the service, 0 s")) << shown;
  EXPECT_TRUE(shown.ends_with("\x1B[K\r\n")) << shown;

  // A Unix socket that is not there yet.
  const auto receive = [this](int peer) { Receive(peer, "\n", ""); };
  EXPECT_EQ(Run("mv in later; (sleep 0.3; mv later in) & " QUORBIN_SEND " --socket in f.txt",
                receive, sockaddr_un{AF_UNIX, "in"}),
            "0:");
  EXPECT_TRUE(chunks.ends_with("one|$EOF$|"));
}

// Passes on what a sender sends to the service and back, as a network does that cuts anywhere. What
// is left between two cuts is a chunk, as long as the service is quick enough. Only the beginning
// of a message stays whole, without which no sender could be understood.
void CutAnywhere(int sender, const Service& service, std::mt19937& random) {
  const Peer receiver = service.Connect();
  std::string bytes(1 << 16, '\0');
  bool begins = true;
  for (;;) {
    pollfd ends[] = {{sender, POLLIN, 0}, {receiver.Descriptor(), POLLIN, 0}};
    poll(ends, 2, -1);
    if (ends[1].revents != 0) {
      const ssize_t n = recv(receiver.Descriptor(), bytes.data(), bytes.size(), 0);
      if (n <= 0) return;
      send(sender, bytes.data(), static_cast<std::size_t>(n), MSG_NOSIGNAL);
      begins = true;
      continue;
    }
    const ssize_t n = recv(sender, bytes.data(), bytes.size(), 0);
    if (n <= 0) return;
    std::string_view rest(bytes.data(), static_cast<std::size_t>(n));
    while (!rest.empty()) {
      std::size_t length = 1 + random() % rest.size();
      if (random() % 2 == 0) length = std::min(rest.find('$', 1), rest.size());
      if (begins && !rest.starts_with(BufferHeader::Token)) length = rest.size();
      if (begins) length = std::max(length, std::min(BufferHeader::Size, rest.size()));
      receiver.Send(rest.substr(0, length));
      rest.remove_prefix(length);
      begins = false;
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 4 * 100));
    }
  }
}

// Text full of what the service acts upon at the border of a chunk.
std::string Markers(std::mt19937& random, int count) {
  const Strings words = {"$EOF$",    "$BUFFLEN$", "$BUFFLEN$0000000025", "$BUFFLEN$ -0000005",
                         "$BUFFLEN", "$EOF",      "BUFFLEN$0000000001",  "$",
                         "\r\n",     "x",         std::string(60, 'y')};
  std::string text;
  for (int i = 0; i < count; ++i) text += words[random() % words.size()];
  return text;
}

// The sender in Python, from the documents.
void WriteDocumentedSender(const std::string& file) {
  const std::string readme = Contents(README), begin = "```python\n";
  const std::size_t at = readme.find(begin, readme.find("save it as `send.py`")) + begin.size();
  std::ofstream(file) << readme.substr(at, readme.find("```\n", at) - at);
}

TEST_F(ToolsTest, ANetworkThatCutsAnywhereForgesNothing) {
  Running service;
  WriteDocumentedSender("send.py");
  for (unsigned seed = 0; seed < 8; ++seed) {
    std::mt19937 random(seed);
    const std::string content = Markers(random, 300);
    std::ofstream("f.txt") << content;
    const std::string buffer = std::to_string(20 + random() % 200);
    const std::string python = "python3 send.py 127.0.0.1 $P f.txt";
    for (const std::string& sender : {"$S f.txt"s, "$S --buffer " + buffer + " f.txt", python}) {
      ASSERT_EQ(Run(sender, [&](int peer) { CutAnywhere(peer, service, random); }), "0:");
      ASSERT_TRUE(service.Viewed() == content) << sender << ", seed " << seed;
    }
  }
}

TEST_F(ToolsTest, TenDocumentedSendersAtOnce) {
  Service service;
  service.WriteScript("compare", "cmp \"$1\" " + service.Path("sent") + " && echo >> $0.d\n");
  service.Settings("log=" + service.Path("compare") + " \"%1\"\n");
  ASSERT_TRUE(service.Start());
  WriteDocumentedSender("send.py");
  std::mt19937 random(1);
  service.WriteFile("sent", Markers(random, 3000));
  std::string all;
  for (const char* name : {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"}) {
    fs::copy_file(service.Home / "sent", std::string(name) + ".log");
    all += "python3 send.py 127.0.0.1 " + std::to_string(service.Port) + " " + name + ".log & ";
  }
  EXPECT_EQ(Send(all + "wait"), "0:");
  EXPECT_TRUE(Eventually([&] { return Contents(service.Home / "compare.d").size() == 10; }));
}

TEST_F(ToolsTest, FaultsOfTheConnectionHaveAStatusOfTheirOwn) {
  std::ofstream("f.txt") << "ab";
  EXPECT_EQ(Send("$S --timeout 1 f.txt", "$FILETYPE$", ""),
            "75:quorbin-send: f.txt: no reply from the service within 1 s\n");
  EXPECT_EQ(
      Send("$S f.txt", "$BUFF", "close"),
      "75:quorbin-send: f.txt: the service closed the connection before the end of the file\n");
  EXPECT_TRUE(Send("$S f.txt x.txt", "$BUFF", "close").starts_with("1:"));
  EXPECT_TRUE(Send("$S x.txt f.txt", "$BUFF", "close").starts_with("1:"));
}

TEST_F(ToolsTest, LinkAnswers) {
  const std::string user = getpwuid(geteuid())->pw_name;
  const std::string base = folder + "/" + std::string(120, 'd'), directory = base + "/Quorbin";
  const std::string link = "XDG_RUNTIME_DIR=" + base + " " QUORBIN_LINK " ";
  const std::string none =
      "2:quorbin-link: no service of " + user + " at " + directory + "/qbstop: ";
  const std::string warning = "0:quorbin-link: warning: ";
  EXPECT_EQ(Send(link + "request stopsrv"), none + "No such file or directory\n");
  std::filesystem::create_directories(directory);
  std::filesystem::current_path(directory);  // too long a path for a socket address
  const Strings rows[] = {
      {"execute 'con  10.0.0.7'", "execute con  10.0.0.7\n", "accepted\n", "0:accepted\n"},
      {"execute con '*local'", "execute con *local\n", "accepted\n", "0:accepted\n"},
      {"execute dis desk7", "execute dis desk7\n", "accepted\n", "0:accepted\n"},
      {"execute con desk7", "execute con desk7\n", "accepted\n",
       warning + "'desk7' is no address and matches nobody\naccepted\n"},
      {"execute CON FE80::1", "execute CON FE80::1\n", "accepted\n",
       warning + "'FE80::1' matches nobody; the service writes it fe80::1\naccepted\n"},
      {"notify x", "notify x\n", "refused\n", "1:refused\n"},
      {"request stopsrv", "request stopsrv\n", "value a b \n", "0:a b \n"},
      {"request x", "request x\n", "", none + "it closed the channel without an answer\n"},
      {"execute 'a\nb'", "", "", "1:quorbin-link: refused: the text holds a line end\n"},
      {"execute $(printf %04089d 0)", "", "", "1:quorbin-link: refused: the text is too long\n"},
  };
  for (const Strings& row : rows) {
    std::string line;
    const auto answer = [&](int peer) {
      for (char c = 0; c != '\n' && recv(peer, &c, 1, 0) == 1;) line += c;
      send(peer, row[2].data(), row[2].size(), MSG_NOSIGNAL);
    };
    EXPECT_EQ(Run(link + row[0], answer, sockaddr_un{AF_UNIX, "qbstop"}), row[3]);
    EXPECT_EQ(line, row[1]);
    std::filesystem::remove("qbstop");
  }
}

}  // namespace
}  // namespace quorbin::tests
