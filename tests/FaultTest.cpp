// Faults of the system under the built service, and senders that mean harm.

#include <gtest/gtest.h>
#include <netdb.h>

#include <algorithm>
#include <cerrno>

#include "Service.hpp"

namespace quorbin::tests {
namespace {

using Strings = std::vector<std::string>;

struct Outcome {
  bool Complete = false;  // the last reply was positive
  Strings Acknowledged;   // the pieces of content that drew one
};

// One transfer, broken off at the first reply that is not positive.
Outcome Transfer(const Peer& peer, const Strings& head, const Strings& content) {
  Outcome outcome;
  for (const std::string& message : head) {
    peer.Send(message);
    if (!peer.Receive().starts_with("+OK")) return outcome;
  }
  for (const std::string& message : content) {
    peer.Send(message);
    if (peer.Receive() != "+OK") return outcome;
    // Neither head of a buffer nor end marker.
    std::string piece = message.substr(message.starts_with("$BUFFLEN$") ? 19 : 0);
    outcome.Acknowledged.push_back(piece.substr(0, piece.find("$EOF$")));
  }
  outcome.Complete = true;
  return outcome;
}

std::string AllFiles(const Service& service) {
  std::string all;
  for (const auto& file : fs::directory_iterator(service.Home / "tmp")) all += Contents(file);
  return all;
}

const Strings Binary = {"$VERSION$:1", "$FILE$:a.log", "$FILETYPE$:B", "$DATA$"};
const Strings Buffers = {"$BUFFLEN$0000000022one", "$BUFFLEN$0000000022two",
                         "$BUFFLEN$0000000029three$EOF$"};
const Strings Text = {"$FILE$:a.log", "$DATA$"};
const Strings Lines = {"one", "two", "three$EOF$"};

// Every call of a whole transfer fails once, and from each on without end.
TEST(Fault, EveryCallOfATransfer) {
  const struct {
    const char* Call;
    std::vector<int> Errors;  // 0: half of the bytes
    bool Lasting;             // also from the n-th call on
  } rows[] = {
      {"open", {EMFILE, EACCES, EINTR}, true},
      {"fchmod", {EPERM}, true},
      {"ftruncate", {EIO}, true},
      {"write", {ENOSPC, EINTR, 0}, false},
      {"write", {ENOSPC, EIO}, true},
      {"writev", {ENOSPC, EINTR, 0}, false},
      {"writev", {ENOSPC, EIO}, true},
      {"send", {EAGAIN, EINTR, EPIPE, 0}, false},
      {"recv", {EAGAIN, EINTR, ECONNRESET}, false},
      {"accept4", {EMFILE, ECONNABORTED, EINTR}, false},
      {"listen", {EADDRINUSE}, false},
      {"poll", {EINTR, ENOMEM}, false},
      {"posix_spawnp", {ENOENT, EAGAIN}, false},
      {"getnameinfo", {-EAI_MEMORY}, true},
  };
  Service service("log=true\n");
  const fs::path fired = service.Home / "fired";
  int runs = 0;
  for (const auto& row : rows) {
    for (const int error : row.Errors) {
      for (const bool lasting : {false, true}) {
        for (const bool binary : {true, false}) {
          for (int turn = 1; !lasting || row.Lasting; ++turn) {
            fs::remove(fired);
            const std::string plan = std::string(row.Call) + " " + std::to_string(turn) +
                                     (lasting ? "+ " : " ") + std::to_string(error);
            SCOPED_TRACE(plan + (binary ? " binary" : " text"));
            ASSERT_TRUE(service.Start([&] {
              ::setenv("LD_PRELOAD", FAULT_SHIM, 1);
              ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
              ::setenv("QUORBIN_FAULT", plan.c_str(), 1);
              ::setenv("QUORBIN_FAULT_FIRED", fired.c_str(), 1);
            }));
            const std::size_t descriptors = service.Descriptors();
            Outcome outcome;
            {
              const Peer peer = service.Connect();
              outcome =
                  Transfer(peer, binary ? Binary : Text, binary ? Buffers : Lines);
              if (outcome.Complete) {
                EXPECT_EQ(peer.Receive(), "(closed)");
              }
            }
            const bool came = fs::exists(fired);
            if (came && std::string(row.Call) == "listen") {
              EXPECT_EQ(service.Wait(), 1);
              EXPECT_NE(Contents(service.Home / "err").find("Address already in use"),
                        std::string::npos);
              ASSERT_TRUE(service.Start());
              EXPECT_TRUE(outcome.Complete);
              EXPECT_EQ(service.Stop(), 0);
              continue;
            }
            if (!came) {
              EXPECT_TRUE(outcome.Complete);
            }
            // Nothing stays open, and the service listens; while a fault lasts it can do no more.
            EXPECT_TRUE(Eventually([&] { return service.Descriptors() == descriptors; }));
            const std::string files = AllFiles(service);
            for (const std::string& piece : outcome.Acknowledged) {
              if (outcome.Complete) {
                EXPECT_NE(files.find(piece), std::string::npos) << piece;
              }
            }
            if (!outcome.Complete) {
              EXPECT_EQ(service.Received(), 0U);
            }
            if (!lasting) {
              const Outcome next = Transfer(service.Connect(), Binary, Buffers);
              EXPECT_TRUE(next.Complete);
              EXPECT_TRUE(Eventually([&] { return service.Descriptors() == descriptors; }));
            }
            EXPECT_EQ(service.Stop(), 0);
            EXPECT_EQ(service.Received(), 0U);
            ++runs;
            if (!came || HasFailure()) break;
          }
        }
      }
    }
  }
  RecordProperty("runs", runs);
  std::printf("%d runs\n", runs);
}

}  // namespace
}  // namespace quorbin::tests
