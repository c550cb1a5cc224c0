// The parts of the platform that work without the service.

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <list>
#include <new>
#include <vector>

#include "CommandLine.hpp"
#include "ConsoleDisplay.hpp"
#include "EpollLoop.hpp"
#include "Fd.hpp"
#include "FieldTexts.hpp"
#include "InstanceDir.hpp"
#include "Lingering.hpp"
#include "LocalListener.hpp"
#include "MappedBuffer.hpp"
#include "OutputFiles.hpp"
#include "Printable.hpp"
#include "PrivateProfile.hpp"
#include "Processes.hpp"
#include "ReadFile.hpp"
#include "StandardOutput.hpp"
#include "StreamSocket.hpp"

namespace quorbin {
namespace {

// TCP sockets need none.
const InstanceDir& NoDirectory() {
  ::setenv("XDG_RUNTIME_DIR", "/dev/null", 1);
  static const InstanceDir directory("Quorbin");
  return directory;
}

TEST(CommandLine, Splits) {
  const std::pair<std::string, std::vector<std::string>> rows[] = {
      {"a  b\tc ", {"a", "b", "c"}},
      {R"("/a b/c" "x y"z d"e f")", {"/a b/c", "x yz", "de f"}},
      {R"(a \"b\" c:\d\\ "e\"f")", {"a", "\"b\"", R"(c:\d\\)", "e\"f"}},
      {R"($(x) `y`; "" z|w "b c)", {"$(x)", "`y`;", "", "z|w", "b c"}},
      {R"(a\)", {R"(a\)"}},
      {" \t", {}},
  };
  for (const auto& [line, arguments] : rows) EXPECT_EQ(SplitCommandLine(line), arguments) << line;
}

TEST(PrivateProfile, FindsSettings) {
  const std::string file =
      "\xEF\xBB\xBF[ Hosts ] ; peers\r\n; 10.0.0.1=comment\n  # 10.0.0.1=comment\n"
      " 10.0.0.1 \t=  *allow \t\r\n10.0.0.1=second\n::1=\"quoted\"\nEmpty=\nno value\n"
      "[Other\nPort=1\n[HOSTS]\nlate=a=b\n=nameless\nlast=x";
  const std::string_view rows[][3] = {
      {"hosts", "10.0.0.1", "*allow"}, {"Hosts", "::1", "\"quoted\""}, {"Hosts", "EMPTY", ""},
      {"Hosts", "no value", "-"},      {"Hosts", "late", "a=b"},       {"Hosts", "", "-"},
      {"Hosts", "last", "x"},          {"Hosts", "Port", "-"},         {"Other", "port", "1"},
      {"Nowhere", "last", "-"},        {"Hosts", "; 10.0.0.1", "-"},   {"Hosts", "# 10.0.0.1", "-"},
  };
  for (const auto& [section, key, value] : rows) {
    EXPECT_EQ(FindSetting(file, section, key).value_or("-"), value) << key;
  }
}

TEST(Processes, AViewerJustStartedTakesItsFileBeforeThatIsDeleted) {
  std::string folder = testing::TempDir() + "takesXXXXXX";
  ASSERT_TRUE(mkdtemp(folder.data()));
  const std::string path = folder + "/f.a", other = folder + "/f";
  Processes processes([] { return std::string(); });
  // Whose file is asked for, what the viewer does, how long the deletion waits at least and at
  // most.
  const std::string move = "sleep 0.1; mv $1 $1.kept; sleep 60";
  const std::tuple<std::string, std::string, double, double> rows[] = {
      {path, move, 0.1, 0.4},
      {"", move, 0.1, 0.4},
      {path, "exec 3<$1; sleep 0.1; rm $1; sleep 60", 0.1, 0.4},
      {path, "sleep 0.1", 0.1, 0.4},      // it has ended
      {path, "exec sleep 60", 0.45, 10},  // it leaves the file where it is
      {other, "exec sleep 60", 0, 0.4},   // a file that another name begins with
  };
  for (const auto& [asked, script, least, most] : rows) {
    SCOPED_TRACE(script);
    std::chrono::duration<double> waited{};
    for (int attempt = 0; attempt == 0 || (waited.count() >= most && attempt < 10); ++attempt) {
      std::ofstream(path) << "content";
      std::ofstream(other) << "content";
      const auto begin = std::chrono::steady_clock::now();
      const std::optional<int> viewer =
          processes.Shell("sh -c \"" + script + "\" sh " + path, path);
      ASSERT_TRUE(viewer);
      processes.LetViewerTake(asked);
      waited = std::chrono::steady_clock::now() - begin;
      kill(-*viewer, SIGKILL);                                      // with what it has started
      std::this_thread::sleep_for(std::chrono::milliseconds(500));  // it counts as old from then on
    }
    EXPECT_GE(waited.count(), least);
    EXPECT_LT(waited.count(), most);  // of ten attempts, as the computer may be slow
  }
  std::filesystem::remove_all(folder);
}

TEST(Printable, EscapesWhatSteersATerminal) {
  const std::string plain = "plain \u00E4\u0434 \u20AC \U0001F600";
  EXPECT_EQ(Printable(plain), plain);
  EXPECT_EQ(Printable({"\r\n\t\\\x1B\x7F\0\u009B", 9}), R"(\r\n\t\\\x1B\x7F\x00\xC2\x9B)");
  EXPECT_EQ(Printable("\xE4\xED\xA0\x80\xE2\x82"), R"(\xE4\xED\xA0\x80\xE2\x82)");
  EXPECT_EQ(Printable("\uFEFF"), R"(\xEF\xBB\xBF)");
  // First and last of each range, and the characters beside them.
  for (const char32_t point : {U'\0', U'\x1F', U'\x7F', U'\x9F', U'\u061C', U'\u200B', U'\u200F',
                               U'\u2028', U'\u202E', U'\u2060', U'\u2069', U'\uFEFF'}) {
    EXPECT_TRUE(Steers(point)) << static_cast<unsigned>(point);
  }
  for (const char32_t point : {U' ', U'~', U'\xA0', U'\u061B', U'\u061D', U'\u200A', U'\u2010',
                               U'\u2027', U'\u202F', U'\u205F', U'\u206A', U'\uFEFE', U'\uFF00'}) {
    EXPECT_FALSE(Steers(point)) << static_cast<unsigned>(point);
  }
}

TEST(ConsoleDisplay, ShowsTheBeginningOfALongText) {
  std::string shown;
  ConsoleDisplay display([&shown](std::string_view lines) { shown = lines; });
  display.Write(Field::kext, std::string(4097, '\x1B'));
  display.AppendLine(std::string(1 << 20, 'y'));
  display.AppendLine(std::string(4096, 'z'));
  display.EndOfEvent();
  std::string escapes;
  for (int i = 0; i < 4096; ++i) escapes += "\\x1B";
  EXPECT_EQ(shown, "kext: " + escapes + " ... (4097 bytes)\n" + "Satz: " + std::string(4096, 'y') +
                       " ... (1048576 bytes)\n" + "Satz: " + std::string(4096, 'z') + "\n");
}

TEST(FieldTexts, SatzKeepsItsNewestLines) {
  FieldTexts texts;
  const std::string line(999998, 'x');
  for (int i = 0; i < 16; ++i) EXPECT_EQ(texts.AppendLine(line), 0U);
  EXPECT_EQ(texts.AppendLine(line), 9000000U);  // beyond 16 MiB
  EXPECT_EQ(texts.Text(Field::Satz).size(), 8000000U);
  EXPECT_EQ(texts.AppendLine(std::string(FieldTexts::SatzLimit, 'y')), 8000000U + (16U << 20U) + 2);
  EXPECT_EQ(texts.Text(Field::Satz), "");
}

TEST(EpollLoop, HandlesOneEventAtATime) {
  EpollLoop loop;
  const Fd first(::eventfd(1, 0)), second(::eventfd(1, 0));
  std::string order;
  loop.Watch(first.Get(), EventLoop::Readable, [&](unsigned) {
    loop.Unwatch(first.Get());
    loop.Unwatch(second.Get());
    loop.Defer([&] {
      order += "deferred ";
      loop.Defer([&] { order += "by a deferred one, "; });
      loop.Raise([&] { order += "raised by it, "; });
    });
    loop.Raise([&] { order += "raised "; });
    order += "first ";
  });
  // Ready as well, but unwatched before its turn.
  loop.Watch(second.Get(), EventLoop::Readable, [](unsigned) { FAIL(); });
  ASSERT_TRUE(loop.ServeNext(-1));
  EXPECT_EQ(order, "raised first deferred raised by it, by a deferred one, ");

  EXPECT_FALSE(loop.ServeNext(0));
}

TEST(PrivateProfile, AnEventSeesOneVersionOfTheFile) {
  EpollLoop loop;
  PrivateProfile profile(loop);
  const std::string path = testing::TempDir() + "quorbin-profile-" + std::to_string(::getpid());
  const auto replace = [&](const char* value) {
    std::ofstream(path) << "[Global]\nPort=" << value << "\n";
  };
  const auto port = [&] {
    std::string value(20, ' ');
    value.resize(profile.GetPrivateProfileString("Global", "Port", "none", value, path));
    return value;
  };
  std::string seen;
  replace("1");
  loop.Raise([&] {
    seen += port();
    replace("2");
    seen += port();
    std::remove(path.c_str());
    seen += port();
    replace("3");
  });
  loop.Raise([&] { seen += port(); });
  std::remove(path.c_str());
  EXPECT_EQ(seen, "1113");
}

// Listening again after a connection must succeed when room or descriptors have become short. A
// process of its own fills a small run-time directory, and its table of descriptors.
TEST(LocalListener, OutlivesShortages) {
  const std::string place = testing::TempDir() + "quorbin-full-" + std::to_string(::getpid());
  std::filesystem::create_directory(place);
  std::signal(SIGCHLD, SIG_DFL);
  const pid_t child = ::fork();
  if (child == 0) {
    ::setenv("XDG_RUNTIME_DIR", place.c_str(), 1);
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("", place.c_str(), "tmpfs", 0, "nr_inodes=10") != 0) {
      ::_exit(1);
    }
    InstanceDir directory("Quorbin");
    LocalListener listener(directory);
    if (!directory.Claim() || listener.Listen()) ::_exit(2);
    for (int i = 0; std::ofstream(place + "/" + std::to_string(i)); ++i) continue;
    listener.Stop();
    if (listener.Listen()) ::_exit(3);
    std::filesystem::remove(place + "/0");
    listener.Stop();
    while (::dup(0) >= 0) continue;
    ::_exit(listener.Listen() ? 4 : 0);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  std::filesystem::remove(place);
  if (WEXITSTATUS(status) == 1) GTEST_SKIP() << "no rights to mount";
  EXPECT_EQ(status, 0);
}

TEST(ReadFile, PlainFilesUpToALimit) {
  std::string folder = testing::TempDir() + "readXXXXXX";
  ASSERT_TRUE(mkdtemp(folder.data()));
  std::ofstream(folder + "/file") << "content";
  ASSERT_EQ(::mkfifo((folder + "/fifo").c_str(), 0600), 0);
  EXPECT_EQ(ReadFile(folder + "/file"), "content");
  EXPECT_EQ(ReadFile(folder + "/file", 7), "content");
  EXPECT_EQ(ReadFile(folder + "/file", 6), "");
  for (const char* other : {"/fifo", "/missing", ""}) EXPECT_EQ(ReadFile(folder + other), "");
  std::filesystem::remove_all(folder);
}

TEST(MappedBuffer, WithoutMemory) {
  constexpr std::size_t tooMuch = std::numeric_limits<std::size_t>::max() / 2;
  EXPECT_THROW(MappedBuffer{tooMuch}, std::bad_alloc);
  MappedBuffer buffer(4096);
  buffer.Data()[4095] = 'x';
  EXPECT_FALSE(buffer.Resize(tooMuch));
  EXPECT_EQ(buffer.Size(), 4096U);
  ASSERT_TRUE(buffer.Resize(1U << 20U));
  EXPECT_EQ(buffer.Size(), 1U << 20U);
  EXPECT_EQ(buffer.Data()[4095], 'x');
}

// Both ends of a connection; the first is the program's.
std::pair<Fd, Fd> Connection() {
  int ends[2];
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  return {Fd(ends[0]), Fd(ends[1])};
}

// Whether the peer can still send.
bool Takes(const Fd& peer, std::size_t bytes) {
  const std::string block(bytes, 'x');
  return ::send(peer.Get(), block.data(), bytes, MSG_NOSIGNAL | MSG_DONTWAIT) ==
         static_cast<ssize_t>(bytes);
}

TEST(Lingering, IsBounded) {
  EpollLoop loop;
  Lingering lingering(loop);
  std::list<Fd> peers;
  for (int i = 0; i < 17; ++i) {  // the seventeenth takes the place of the first
    auto [own, peer] = Connection();
    loop.Raise([&, connection = &own] { lingering.Add(std::move(*connection), {}, false); });
    peers.push_back(std::move(peer));
  }
  EXPECT_FALSE(Takes(peers.front(), 1));
  peers.pop_front();
  for (const Fd& peer : peers) EXPECT_TRUE(Takes(peer, 1));

  auto [own, peer] = Connection();
  const int descriptor = own.Get();
  loop.Raise([&, connection = &own] { lingering.Add(std::move(*connection), {}, false); });
  peers.clear();
  while (loop.ServeNext(0)) continue;
  // 64 KiB in one event, 16 MiB in all.
  ASSERT_TRUE(Takes(peer, 65537));
  loop.ServeNext(0);
  int waiting = 0;
  EXPECT_EQ(::ioctl(descriptor, FIONREAD, &waiting), 0);
  EXPECT_EQ(waiting, 1);
  ASSERT_TRUE(Takes(peer, 65535));
  while (loop.ServeNext(0)) continue;
  for (int i = 2; i < 256; ++i) {
    ASSERT_TRUE(Takes(peer, 65536));
    loop.ServeNext(0);
  }
  ASSERT_TRUE(Takes(peer, 1));
  loop.ServeNext(0);
  EXPECT_FALSE(Takes(peer, 1));
}

// The peer has ended its side, perhaps after what nobody reads; it gets the replies all the same.
TEST(Lingering, RepliesOutliveTheEndOfThePeersSide) {
  for (const std::size_t unread : {0U, 10U}) {
    EpollLoop loop;
    Lingering lingering(loop);
    auto [own, peer] = Connection();
    const int little = 4096;
    ::setsockopt(own.Get(), SOL_SOCKET, SO_SNDBUF, &little, sizeof little);
    SendQueue replies;
    ASSERT_EQ(replies.Send(own.Get(), std::string(40000, 'r')), SendQueue::Result::Waiting);
    ASSERT_TRUE(Takes(peer, unread));
    ::shutdown(peer.Get(), SHUT_WR);
    loop.Raise([&, connection = &own] {
      lingering.Add(std::move(*connection), std::move(replies), false);
    });
    for (int i = 0; i < 3; ++i) loop.ServeNext(0);
    std::size_t all = 0;
    char bytes[4096];
    for (ssize_t count; (count = ::recv(peer.Get(), bytes, sizeof bytes, 0)) > 0;) {
      all += static_cast<std::size_t>(count);
      loop.ServeNext(0);
    }
    EXPECT_EQ(all, 40000U) << unread;
  }
}

// What a process of its own prints, more than is taken; then the reader makes room. The status is
// that of the process, which also must leave the flags of the shared description as they are.
std::string PrintedTo(const Fd& output, const Fd& reader, bool mayOpen, int& status) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(output.Get(), STDOUT_FILENO);
    const rlimit none = {.rlim_cur = 0, .rlim_max = 0};
    if (!mayOpen) ::setrlimit(RLIMIT_NOFILE, &none);
    StandardOutput standardOutput;
    for (int i = 0; i < 3; ++i) standardOutput.Print(std::string(1U << 20U, 'x') + "\n");
    if ((::fcntl(STDOUT_FILENO, F_GETFL) & O_NONBLOCK) != 0) ::_exit(2);
    std::string bytes(1U << 22U, '\0');
    while (::recv(reader.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) continue;
    if (::fcntl(reader.Get(), F_SETFL, O_NONBLOCK) != 0) ::_exit(3);
    while (::read(reader.Get(), bytes.data(), bytes.size()) > 0) continue;
    standardOutput.Print("next\n");
    ::_exit(0);
  }
  ::waitpid(child, &status, 0);
  std::string bytes(100, '\0');
  const ssize_t count = ::read(reader.Get(), bytes.data(), bytes.size());
  return bytes.substr(0, count > 0 ? static_cast<std::size_t>(count) : 0);
}

TEST(StandardOutput, NeverWaitsAndStartsOnANewLineAfterALoss) {
  for (const char* kind : {"socket", "pipe", "pipe that can't be opened again"}) {
    SCOPED_TRACE(kind);
    int ends[2];
    ASSERT_EQ(
        std::string(kind) == "socket" ? ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : ::pipe(ends),
        0);
    const Fd reader(ends[0]), output(ends[1]);
    int status = -1;
    EXPECT_EQ(PrintedTo(output, reader, !std::string(kind).ends_with("again"), status), "\nnext\n");
    EXPECT_EQ(status, 0);
  }
}

// A peer of the service; unread replies soon fill its little buffer.
Fd ConnectTo(int port) {
  Fd peer(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int little = 1024;
  ::setsockopt(peer.Get(), SOL_SOCKET, SO_RCVBUF, &little, sizeof little);
  const sockaddr_in address = {
      AF_INET, htons(static_cast<in_port_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
  const auto* general = reinterpret_cast<const sockaddr*>(&address);
  EXPECT_EQ(::connect(peer.Get(), general, sizeof address), 0);
  return peer;
}

// A peer that has vanished is found on the connection, so that is where the options must hold.
TEST(StreamSocket, ConnectionsInheritTheOptionsOfTheListener) {
  const std::pair<int, int> options[] = {
      {IPPROTO_TCP, TCP_NODELAY}, {SOL_SOCKET, SO_KEEPALIVE}, {IPPROTO_TCP, TCP_USER_TIMEOUT}};
  EpollLoop loop;
  StreamSocket socket(loop, NoDirectory());
  const auto look = [&](int requestID) {
    for (const auto& [level, option] : options) {
      int value = 0;
      socklen_t length = sizeof value;
      ::getsockopt(requestID, level, option, &value, &length);
      EXPECT_GT(value, 0) << option;
    }
    loop.Quit();
  };
  socket.SetEvents({look, [](auto) {}, [] {}, [](auto...) { ADD_FAILURE(); }});
  ASSERT_FALSE(socket.Listen());
  const Fd peer = ConnectTo(socket.LocalPort());
  loop.Run();  // until the look
}

// The peer ends its side before it reads.
TEST(StreamSocket, RepliesWaitForALatePeerUpToALimit) {
  const std::string reply(60000, 'r');
  for (const int replies : {1, 2}) {
    EpollLoop loop;
    StreamSocket socket(loop, NoDirectory());
    const auto accept = [&](int requestID) {
      const int little = 4096;
      ::setsockopt(requestID, SOL_SOCKET, SO_SNDBUF, &little, sizeof little);
      socket.Close();
      socket.Accept(requestID);
    };
    const auto answer = [&](auto) {
      for (int i = 0; i < replies; ++i) socket.SendData(reply);
    };
    int closes = 0;
    const auto close = [&] {
      ++closes;
      socket.Close();
    };
    socket.SetEvents({accept, answer, close, [](auto...) { ADD_FAILURE(); }});
    ASSERT_FALSE(socket.Listen());
    const Fd peer = ConnectTo(socket.LocalPort());
    EXPECT_TRUE(Takes(peer, 1));
    ::shutdown(peer.Get(), SHUT_WR);
    std::string all;
    loop.Watch(peer.Get(), EventLoop::Readable, [&](unsigned) {
      std::string part(1U << 16U, ' ');
      const ssize_t count = ::recv(peer.Get(), part.data(), part.size(), 0);
      all += part.substr(0, count > 0 ? static_cast<std::size_t>(count) : 0);
      if (count <= 0) loop.Quit();
    });
    loop.Run();
    EXPECT_EQ(closes, 1);
    EXPECT_EQ(all.size() < reply.size(), replies == 2);
    EXPECT_TRUE(reply.starts_with(all));
  }
}

}  // namespace
}  // namespace quorbin
