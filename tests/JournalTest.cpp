// The entries that reach the system's journal, or its syslog daemon.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "Fd.hpp"
#include "SystemJournal.hpp"

namespace quorbin {
namespace {

// A daemon that takes datagrams.
struct Daemon {
  explicit Daemon(const std::string& path) : socket(::socket(AF_UNIX, SOCK_DGRAM, 0)) {
    sockaddr_un address = {AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ::bind(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
  }
  // The next datagram; empty if none waits.
  std::string Take() const {
    std::string bytes(65536, '\0');
    const ssize_t count = ::recv(socket.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
  }
  Fd socket;
};

struct JournalTest : testing::Test {
  JournalTest() { folder = ::mkdtemp(folder.data()); }
  ~JournalTest() override { std::filesystem::remove_all(folder); }

  void Write() const { SystemJournal(folder + "/journal", folder + "/log").Write(entry); }

  std::string folder = testing::TempDir() + "journalXXXXXX";
  JournalEntry entry{.Warning = true,
                     .Message = "refused\nPRIORITY=0",
                     .Fields = {{"PEER", "10.0.0.7"},
                                {"FILE", "a\nb\x1B[m\xE2\x80\xAE"},
                                {"COMMAND", std::string(100000, 'x')}}};
};

TEST_F(JournalTest, FieldsOfTheJournal) {
  const Daemon journal(folder + "/journal");
  const Daemon syslog(folder + "/log");
  Write();
  EXPECT_EQ(journal.Take(),
            "MESSAGE=refused\\nPRIORITY=0\nPRIORITY=4\nSYSLOG_IDENTIFIER=quorbin\nPEER=10.0.0.7\n"
            "FILE=a\\nb\\x1B[m\\xE2\\x80\\xAE\nCOMMAND=" +
                std::string(512, 'x') + "\n");
  EXPECT_EQ(syslog.Take(), "");
}

TEST_F(JournalTest, LosesOneCharacterAtMostAtTheCut) {
  const Daemon journal(folder + "/journal");
  entry.Fields = {{"FILE", "\x01"}};
  for (int i = 0; i < 300; ++i) entry.Fields[0].Value += "\u4E2D";
  Write();
  const std::string datagram = journal.Take();
  const std::size_t length = datagram.size() - datagram.find("FILE=") - 6;
  EXPECT_GE(length, 508U);
  EXPECT_EQ((length - 4) % 3, 0U);
}

TEST_F(JournalTest, SyslogWithoutAJournal) {
  const Daemon syslog(folder + "/log");
  entry.Warning = false;
  Write();
  const std::string line = syslog.Take();
  EXPECT_TRUE(line.starts_with("<14>")) << line;
  const std::string tag = " quorbin[" + std::to_string(::getpid()) + "]: ";
  EXPECT_TRUE(line.ends_with(tag + "refused\\nPRIORITY=0")) << line;
}

TEST_F(JournalTest, NeverWaitsAndSaysWhatItLost) {
  Write();
  for (const std::string name : {"/journal", "/log"}) {
    const Daemon full(folder + name);
    SystemJournal journal(folder + "/journal", folder + "/log");
    constexpr int written = 10000;
    for (int i = 0; i < written; ++i) journal.Write(entry);  // nobody reads
    int taken = 0;
    while (!full.Take().empty()) ++taken;
    EXPECT_GT(taken, 0);
    const std::string lost = std::to_string(written - taken);
    journal.Write(entry);
    const std::string next = full.Take();
    EXPECT_NE(next.find("PRIORITY=0 (after " + lost + " lost entries)"), next.npos) << next;
    EXPECT_EQ(next.ends_with("\nENTRIES_LOST=" + lost + "\n"), name == "/journal") << next;
    journal.Write(entry);
    EXPECT_EQ(full.Take().find("lost"), std::string::npos);
    std::filesystem::remove(folder + name);
  }
}

}  // namespace
}  // namespace quorbin
