// The built clients against small services within the test.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "Protocol.hpp"

namespace {

using namespace quorbin;
using Strings = std::vector<std::string>;

// The exit status, a colon, and what came on both streams.
std::string Shell(const std::string& command) {
  FILE* const pipe = popen(("export LC_ALL=C; exec 2>&1; " + command).c_str(), "r");
  std::string output;
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) output += static_cast<char>(c);
  return std::to_string(WEXITSTATUS(pclose(pipe))) + ":" + output;
}

struct ToolsTest : testing::Test {
  void SetUp() override { ASSERT_NE(mkdtemp(folder.data()), nullptr); }
  ~ToolsTest() override {
    Stop();
    std::filesystem::remove_all(folder);
  }

  // Serves connections one after the other until Stop. Completes the address.
  void Listen(auto& address, auto serve) {
    socklen_t size = sizeof address;
    auto* const general = reinterpret_cast<sockaddr*>(&address);
    listener = socket(general->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, general, size) | listen(listener, 5), 0);
    getsockname(listener, general, &size);
    thread = std::thread([this, serve] {
      for (int p; (p = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; close(p)) serve(p);
    });
  }
  void Stop() {
    shutdown(listener, SHUT_RDWR);
    if (thread.joinable()) thread.join();
    close(std::exchange(listener, -1));
  }

  // Starts a receiver and returns the command that sends to it. It answers as the service does, but
  // a chunk beginning with `odd` draws the reply: nothing for a close, "silence" for none.
  std::string Sender(const std::string& odd = "\n", const std::string& oddReply = "") {
    chunks = contents = {};
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    Listen(address, [=, this](int peer) { Receive(peer, odd, oddReply); });
    return QUORBIN_SEND " --port " + std::to_string(ntohs(address.sin_port)) + " ";
  }
  void Receive(int peer, const std::string& odd, const std::string& oddReply) {
    std::string content, bytes(1 << 20, ' ');
    bool binary = false, data = false, ends = false;
    std::int64_t left = 0;
    // Unread bytes make the close a reset, as for a sender that waits in vain.
    if (std::exchange(resetNext, false)) recv(peer, bytes.data(), 1, MSG_PEEK), ends = true;
    for (ssize_t n; !ends && (n = recv(peer, bytes.data(), bytes.size(), 0)) > 0;) {
      std::string chunk = bytes.substr(0, static_cast<std::size_t>(n)), reply(Reply::Ok);
      chunks.push_back(chunk);
      if (data) {
        ends = chunk.starts_with(Token::Eof) || chunk.ends_with(Token::Eof);
        if (ends) chunk.erase(chunk.rfind(Token::Eof));
        const bool head = chunk.starts_with(BufferHeader::Token);
        left = (head ? std::stol(chunk.substr(9, 10)) : left) - n;
        if (binary && !ends && left != 0) reply = "silence";
        if (!chunk.empty()) content += chunk.substr(head ? 19 : 0) + (binary ? "" : "\r\n");
      } else {
        binary = binary || chunk == Token::FileTypeBinary;
        data = chunk == Token::Data;
      }
      if (chunks.back().starts_with(odd)) reply = oddReply;
      if (reply.empty()) return;
      if (reply != "silence") send(peer, reply.data(), reply.size(), MSG_NOSIGNAL);
      if (ends) contents.push_back(content);
    }
  }

  std::string Put(const std::string& name, const std::string& content) {
    std::ofstream(folder + "/" + name, std::ios::binary) << content;
    return "'" + folder + "/" + name + "' ";
  }

  std::string folder = testing::TempDir() + "toolsXXXXXX";
  int listener = -1;
  std::thread thread;
  bool resetNext = false;
  Strings chunks, contents;  // of all connections; of the transfers that came to their end
};

TEST_F(ToolsTest, BinaryMessagesInOrder) {
  const std::string send = Sender() + "--ext .x --prefix ' p ' --suffix \"s$(printf '\\025')\" ";
  EXPECT_EQ(Shell(send + "--buffer 29 " + Put("a name", "0123456789abc")), "0:");
  Stop();
  EXPECT_GT(chunks.at(0).size(), Token::Version.size());
  chunks.at(0).resize(Token::Version.size());
  EXPECT_EQ(chunks, (Strings{"$VERSION$:", "$EXT$:.x", "$FILETYPE$:B", "$KDOPRF$: p ",
                             "$KDOEXT$:s\x15\x15", "$FILE$:a name", "$DATA$",
                             "$BUFFLEN$00000000290123456789", "$BUFFLEN$0000000022abc", "$EOF$"}));
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
    const char* const both = "; cat $F | $S - && $S $F";
    EXPECT_EQ(Shell("S='" + Sender() + row[0] + "' F=" + Put("file", row[1]) + both), "0:");
    Stop();
    EXPECT_TRUE(contents == (Strings{row[2], row[2]})) << row[0];
    EXPECT_EQ(std::ranges::count(chunks, "$FILE$:stdin"), 1);
  }
}

TEST_F(ToolsTest, RefusalsInWords) {
  const std::string cut = "-Fehler: Buffer-length at EOF: -7", x(32766, 'x');
  const Strings rows[] = {
      // options, content, chunk, reply to it, sentence
      {"", "", "$VERSION$:", "",
       "the host is not allowed to connect (the service closed the connection without a reply)"},
      {"", "", "$DATA$", "-KDO", "the service has no viewer for this extension (reply \"-KDO\")"},
      {"", "ab", "$BUFF", "", "the service closed the connection before the end of the file"},
      {"", "", "$EOF$", cut,
       "the file is cut short at an end marker in it (reply \"" + cut + "\")"},
      {"--text", "a\nb\n", "a", "+OK\x1B\xE4", "unexpected reply (reply \"+OK\\x1B\\xE4\")"},
      {"--timeout 1", "", "$FILETYPE$", "silence", "no reply from the service within 1 s"},
      {"--text", "a\n$EOF$b\n", "\n", "", "line 2 begins or ends with $EOF$; send it as binary"},
      {"--text", x + x, "\n", "", "line 1 is longer than 32768 bytes; send it as binary"},
      {"--no-version", x + "$EOF$b", "\n", "", "the content holds $EOF$; leave out --no-version"},
      {"--name 'a '", "", "\n", "", "the name ends in a blank; give another with --name"},
  };
  for (const Strings& row : rows) {
    EXPECT_EQ(Shell(Sender(row[2], row[3]) + row[0] + " " + Put("f", row[1])),
              "1:quorbin-send: " + folder + "/f: " + row[4] + "\n");
    Stop();
    EXPECT_EQ(std::ranges::count(chunks, Token::Eof), row[2] == Token::Eof ? 1 : 0);
  }
  // Where no buffer was announced, that reply is a good end.
  EXPECT_EQ(Shell(Sender("$EOF$", cut) + "--no-version " + Put("f", "")), "0:");
}

TEST_F(ToolsTest, GoesOnWithTheNextFile) {
  resetNext = true;
  const std::string send = "cd " + folder + ";" + Sender(), none = "No such file or directory\n";
  EXPECT_EQ(Shell(send + Put("f", "one") + "x " + Put("g", "two")), "1:quorbin-send: x: " + none);
  Stop();
  EXPECT_EQ(contents, (Strings{"one", "two"}));
  EXPECT_TRUE(Shell(send + "f").starts_with("1:quorbin-send: f: connection refused: "));
  EXPECT_TRUE(Shell(send + "--name n f g").starts_with("105:--name: goes with one file only\n"));
}

TEST_F(ToolsTest, LinkAnswers) {
  const std::string base = folder + "/" + std::string(120, 'd'), directory = base + "/Quorbin";
  const std::string link = "XDG_RUNTIME_DIR=" + base + " " QUORBIN_LINK " ";
  const std::string none = "2:quorbin-link: no service at " + directory + "/qbstop: ";
  EXPECT_EQ(Shell(link + "request stopsrv"), none + "No such file or directory\n");
  std::filesystem::create_directories(directory);
  std::filesystem::current_path(directory);  // too long a path for a socket address
  sockaddr_un address{AF_UNIX, "qbstop"};
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
    Listen(address, [&](int peer) {
      for (char c = 0; c != '\n' && recv(peer, &c, 1, 0) == 1;) line += c;
      send(peer, row[2].data(), row[2].size(), MSG_NOSIGNAL);
    });
    EXPECT_EQ(Shell(link + row[0]), row[3]);
    Stop();
    EXPECT_EQ(line, row[1]);
    std::filesystem::remove("qbstop");
  }
  std::filesystem::current_path("/");
}

}  // namespace
