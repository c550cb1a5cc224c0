// The built clients against small services within the test.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "Protocol.hpp"

namespace {

using namespace quorbin;
using Strings = std::vector<std::string>;

struct ToolsTest : testing::Test {
  ToolsTest() { std::filesystem::current_path(mkdtemp(folder.data())); }
  ~ToolsTest() override { std::filesystem::remove_all(folder); }

  // Runs a shell command and serves connections to the address meanwhile, one after the other. In
  // the command $S is quorbin-send to an IPv4 address, whose port the system picks. Returns the
  // exit status, a colon, and what came on both streams.
  static std::string Run(const std::string& command, auto address, auto serve) {
    socklen_t size = sizeof address;
    auto* const general = reinterpret_cast<sockaddr*>(&address);
    const int listener = socket(general->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(listener, general, size) | listen(listener, 5), 0);
    std::string script = "export LC_ALL=C; exec 2>&1; ", output;
    if constexpr (requires { address.sin_port; }) {
      getsockname(listener, general, &size);
      script += "S='" QUORBIN_SEND " --port " + std::to_string(ntohs(address.sin_port)) + "'; ";
    }
    std::thread server([=] {
      for (int p; (p = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; close(p)) serve(p);
    });
    FILE* const pipe = popen((script + command).c_str(), "r");
    for (int c = 0; (c = std::fgetc(pipe)) != EOF;) output += static_cast<char>(c);
    shutdown(listener, SHUT_RDWR);
    server.join();
    close(listener);
    return std::to_string(WEXITSTATUS(pclose(pipe))) + ":" + output;
  }

  // Runs the command against a receiver that answers as the service does. But a chunk that begins
  // with `odd` draws the reply, or, if that is "close", the end of the connection.
  std::string Send(std::string command, std::string odd = "\n", std::string oddReply = "") {
    chunks = contents = "";
    return Run(command, sockaddr_in{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}},
               [&, this](int peer) { Receive(peer, odd, oddReply); });
  }
  void Receive(int peer, const std::string& odd, const std::string& oddReply) {
    std::string bytes(1 << 20, ' '), content;
    bool text = false, data = false, versioned = false, ends = false;
    // Unread bytes make the close a reset, as for a sender that waits in vain.
    if (std::exchange(resetNext, false)) ends = recv(peer, bytes.data(), 1, MSG_PEEK) == 1;
    for (ssize_t n; !ends && (n = recv(peer, bytes.data(), bytes.size(), 0)) > 0;) {
      std::string chunk = bytes.substr(0, static_cast<std::size_t>(n));
      chunks += chunk + "|";
      const bool head = chunk.starts_with(BufferHeader::Token);
      ends = data && (chunk.starts_with(Token::Eof) || chunk.ends_with(Token::Eof));
      std::string reply(!data || text || (head && versioned) || ends ? Reply::Ok : "");
      if (chunk.starts_with(odd)) reply = oddReply;
      if (reply == "close") return;
      if (ends) chunk.erase(chunk.rfind(Token::Eof));
      if (data && !chunk.empty()) content += chunk.substr(head ? 19 : 0) + (text ? "\r\n" : "");
      if (ends) contents += content + "|";
      text = text || chunk == Token::FileTypeText;
      data = data || chunk == Token::Data;
      versioned = versioned || chunk.starts_with(Token::Version);
      send(peer, reply.data(), reply.size(), MSG_NOSIGNAL);
    }
  }

  std::string folder = testing::TempDir() + "toolsXXXXXX";
  bool resetNext = false;
  std::string chunks, contents;  // of all connections; of the transfers that came to their end
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
      {"--no-version", big + "$EOF", big + "$EOF"},
      {"--text", "a\r\n\n x$EOF$y \nlast\r", "a\r\n \r\n x$EOF$y \r\nlast\r\r\n"},
      {"--text --no-version", longest + "\r\n", longest + "\r\n"},
  };
  for (const Strings& row : rows) {
    std::ofstream("f") << row[1];
    EXPECT_EQ(Send("S=\"$S " + row[0] + "\"; cat f | $S - && $S f"), "0:");
    EXPECT_TRUE(contents == row[2] + "|" + row[2] + "|") << row[0];
    EXPECT_NE(chunks.find("|$FILE$:stdin|"), chunks.npos);
  }
}

TEST_F(ToolsTest, RefusalsInWords) {
  const std::string cut = "-Fehler: Buffer-length at EOF: -7", x(32766, 'x');
  const Strings rows[] = {
      // options, content, chunk, reply to it, sentence
      {"", "", "$VERSION$:", "close",
       "the host is not allowed to connect (the service closed the connection without a reply)"},
      {"", "", "$DATA$", "-KDO", "the service has no viewer for this extension (reply \"-KDO\")"},
      {"", "", "$EOF$", cut,
       "the file is cut short at an end marker in it, or has changed meanwhile (reply \"" + cut +
           "\")"},
      {"--text", "a\nb\n", "a", "+OK\x1B\xE4", "unexpected reply (reply \"+OK\\x1B\\xE4\")"},
      {"--text", "a\n$EOF$b\n", "\n", "", "line 2 begins or ends with $EOF$; send it as binary"},
      {"--text", x + x, "\n", "", "line 1 is longer than 32768 bytes; send it as binary"},
      {"--no-version", x + "$EOF$b", "\n", "", "the content holds $EOF$; leave out --no-version"},
      {"--name 'a '", "", "\n", "", "the name ends in a blank; give another with --name"},
  };
  for (const Strings& row : rows) {
    std::ofstream("f") << row[1];
    EXPECT_EQ(Send("$S " + row[0] + " f", row[2], row[3]), "1:quorbin-send: f: " + row[4] + "\n");
    EXPECT_EQ(chunks.ends_with("|$EOF$|"), row[2] == Token::Eof);
  }
}

TEST_F(ToolsTest, GoesOnWithTheNextFile) {
  std::ofstream("f") << "one";
  std::ofstream("g") << "two";
  resetNext = true;
  EXPECT_EQ(Send("$S f x g"), "1:quorbin-send: x: No such file or directory\n");
  EXPECT_EQ(contents, "one|two|");
  EXPECT_TRUE(Send("$S --name n f g").starts_with("105:--name: goes with one file only\n"));
}

TEST_F(ToolsTest, FaultsOfTheConnectionHaveAStatusOfTheirOwn) {
  std::ofstream("f") << "ab";
  EXPECT_TRUE(
      Send("$S --host 127.0.0.2 f").starts_with("75:quorbin-send: f: connection refused: "));
  EXPECT_EQ(Send("$S --timeout 1 f", "$FILETYPE$", ""),
            "75:quorbin-send: f: no reply from the service within 1 s\n");
  EXPECT_EQ(Send("$S f", "$BUFF", "close"),
            "75:quorbin-send: f: the service closed the connection before the end of the file\n");
  EXPECT_TRUE(Send("$S f x", "$BUFF", "close").starts_with("1:"));
  EXPECT_TRUE(Send("$S x f", "$BUFF", "close").starts_with("1:"));
}

TEST_F(ToolsTest, LinkAnswers) {
  const std::string base = folder + "/" + std::string(120, 'd'), directory = base + "/Quorbin";
  const std::string link = "XDG_RUNTIME_DIR=" + base + " " QUORBIN_LINK " ";
  const std::string none = "2:quorbin-link: no service at " + directory + "/qbstop: ";
  EXPECT_EQ(Send(link + "request stopsrv"), none + "No such file or directory\n");
  std::filesystem::create_directories(directory);
  std::filesystem::current_path(directory);  // too long a path for a socket address
  const Strings rows[] = {
      {"execute 'con  10.0.0.7'", "execute con  10.0.0.7\n", "accepted\n", "0:accepted\n"},
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
    EXPECT_EQ(Run(link + row[0], sockaddr_un{AF_UNIX, "qbstop"}, answer), row[3]);
    EXPECT_EQ(line, row[1]);
    std::filesystem::remove("qbstop");
  }
}

}  // namespace
