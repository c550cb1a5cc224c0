// Faults of the system that the built service runs on.

#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>
#include <sstream>

#include "Service.hpp"

namespace quorbin::tests {
namespace {

const std::string Binary =
    "$VERSION$:1|$FILE$:a.log|$FILETYPE$:B|$DATA$|$BUFFLEN$0000000022one|$BUFFLEN$0000000022two|"
    "$BUFFLEN$0000000029three$EOF$";
const std::string Text = "$FILE$:a.log|$DATA$|one|two|three$EOF$";

// Whether each message drew a positive reply; the first that does not ends it.
bool Transfer(const Peer& peer, const std::string& messages) {
  std::istringstream rest(messages);
  for (std::string message; std::getline(rest, message, '|');) {
    peer.Send(message);
    std::string reply = peer.Receive();
    while (reply.size() < (message.starts_with("$VERSION$") ? 9U : 3U)) reply += peer.Receive();
    if (!reply.starts_with("+OK")) return false;
  }
  return peer.Receive() == "(closed)";
}

// Starts the service with a plan for FaultShim.
bool StartUnder(Service& service, const std::string& plan) {
  fs::remove(service.Home / "fired");
  return service.Start([&] {
    ::setenv("LD_PRELOAD", FAULT_SHIM, 1);
    ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
    ::setenv("QUORBIN_FAULT", (plan + " " + (service.Home / "fired").string()).c_str(), 1);
  });
}

// Whether the fault came, once the service listens again or has ended because it could not.
bool FaultCame(const Service& service) {
  const auto fired = [&] { return fs::exists(service.Home / "fired"); };
  return Eventually([&] { return fired() || Peer::Tcp(service.Port); }) && fired();
}

// One transfer with one fault. What must hold whatever the fault is: bytes that drew "+OK" are in a
// file, or the sender gets no success; no other file is left; the service goes on. False if the
// fault never came.
bool RunUnder(Service& service, const std::string& call, int turn, int error, bool binary) {
  const std::string plan = call + " " + std::to_string(turn) + " " + std::to_string(error);
  SCOPED_TRACE(plan + (binary ? " binary" : " text"));
  EXPECT_TRUE(StartUnder(service, plan));
  const std::size_t descriptors = service.Descriptors();
  // The text of an IPv4 address takes no getnameinfo.
  const bool complete = Transfer(service.Connect(call == "getnameinfo"), binary ? Binary : Text);
  const bool came = FaultCame(service);
  // A call that only has to be repeated does no harm.
  const bool passes = turn > 0 && (error == 0 || error == EINTR || error == EAGAIN);
  EXPECT_TRUE(complete || (came && !passes));
  std::string files;
  for (const auto& file : fs::directory_iterator(service.Home / "tmp")) files += Contents(file);
  for (const char* piece : {"one", "two", "three"}) {
    EXPECT_TRUE(!complete || files.find(piece) != std::string::npos) << piece;
  }
  if (came && passes) {
    EXPECT_EQ(files, binary ? "onetwothree" : "one\r\ntwo\r\nthree\r\n");
    EXPECT_EQ(service.Received(), 1U);
  }
  if (came && call == "listen") {  // reported, and left to the supervisor
    EXPECT_EQ(service.Wait(), 1);
    EXPECT_EQ(Contents(service.Home / "err"), "Quorbin has ended: Can't listen on port " +
                                                  std::to_string(service.Port) +
                                                  ": Address already in use\n");
    return came;
  }
  EXPECT_TRUE(Eventually([&] { return service.Descriptors() == descriptors; }));
  // A whole file stays, even if its last reply was lost.
  EXPECT_TRUE(files.find("three") != std::string::npos ||
              Eventually([&] { return service.Received() == 0; }));
  if (turn > 0) {  // a peer that comes while another one goes is reset
    const auto again = [&] { return Transfer(service.Connect(), Binary); };
    EXPECT_TRUE(Eventually(again));
    EXPECT_TRUE(Eventually([&] { return service.Descriptors() == descriptors; }));
  }
  EXPECT_EQ(service.Stop(), 0);
  EXPECT_EQ(service.Received(), 0U);
  return came;
}

// Every call of a whole transfer fails, once and from then on. Known failures elsewhere: success
// reported before the file is safe, leftovers of a failed transfer, no report of a full disk.
TEST(Fault, EveryCallOfATransfer) {
  const struct {
    std::string Call;
    std::vector<int> Errors;  // 0: half of the bytes
    bool Lasting;             // also from then on
  } rows[] = {
      {"open", {EMFILE, ENFILE, EINTR}, true},
      {"fchmod", {EPERM}, true},
      {"ftruncate", {EIO}, true},
      {"writev", {ENOSPC, EIO}, true},
      {"writev", {EINTR, 0}, false},
      {"send", {EAGAIN, EINTR, EPIPE, 0}, false},
      {"recv", {EAGAIN, EINTR, ECONNRESET}, false},
      {"accept4", {EMFILE, ECONNABORTED, EINTR}, false},
      {"listen", {EADDRINUSE}, false},
      {"epoll_wait", {EINTR}, false},
      {"posix_spawnp", {ENOENT, EAGAIN}, false},
      {"getnameinfo", {-EAI_MEMORY}, true},
  };
  Service service("log=true\n");
  for (const auto& row : rows) {
    int runs = 0;
    for (const int error : row.Errors) {
      for (const int way : {0, 1, 2, 3}) {
        const int sign = way < 2 ? 1 : -1;
        if (sign < 0 && !row.Lasting) continue;
        for (int turn = 1; RunUnder(service, row.Call, sign * turn, error, way % 2 == 0); ++turn) {
          ++runs;
          // One listen to a transfer; the next would be for the next peer.
          if (row.Call == "listen" || HasFailure()) break;
        }
      }
    }
    EXPECT_GT(runs, 0) << row.Call;
  }
}

// Settings that can't be read for a moment must not admit a peer that they refuse.
TEST(Fault, NobodyIsLetIn) {
  Service service("[Hosts]\n127.0.0.1=*deny\n");
  int turn = 1;
  for (bool came = true; came; ++turn) {
    ASSERT_TRUE(StartUnder(service, "open -" + std::to_string(turn) + " 24"));
    EXPECT_EQ(service.Connect().Talk({"$VERSION$:1"}), "(closed)") << turn;
    came = FaultCame(service);
    EXPECT_EQ(service.Stop(), 0);
  }
  EXPECT_GT(turn, 2);
}

}  // namespace
}  // namespace quorbin::tests
