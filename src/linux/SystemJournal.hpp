#pragma once

#include <cstdint>
#include <string>

#include "Fd.hpp"
#include "Journal.hpp"

namespace quorbin {

// The journal of systemd, with its named fields; where that does not run when the program starts,
// the line alone goes to the local syslog daemon. Both take datagrams. They are sent here and not
// by sd_journal_send() or syslog(), which wait for a daemon whose queue is full.
class SystemJournal final : public Journal {
 public:
  static constexpr const char* JournalSocket = "/run/systemd/journal/socket";
  static constexpr const char* SyslogSocket = "/dev/log";
  // Bytes of a value that are written, after escaping. The message may have four times as many.
  static constexpr std::size_t LongestValue = 512;

  explicit SystemJournal(const std::string& journalSocket = JournalSocket,
                         const std::string& syslogSocket = SyslogSocket);

  void Write(const JournalEntry& entry) override;

 private:
  std::string JournalDatagram(const JournalEntry& entry) const;
  std::string SyslogDatagram(const JournalEntry& entry) const;
  std::string ShownMessage(const JournalEntry& entry) const;

  bool hasFields_;  // the journal takes the entries
  std::string daemonSocket_;
  Fd socket_;
  std::uint64_t lost_ = 0;  // entries since the last one that was taken
};

}  // namespace quorbin
