#include "SystemJournal.hpp"

#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "Printable.hpp"

namespace quorbin {

namespace {

constexpr std::string_view Identifier = "quorbin";

// The beginning of the text, printable.
std::string Shown(std::string_view bytes, std::size_t longest) {
  // Escaping never shortens, so no more of a huge text need be looked at.
  std::string text = Printable(bytes.substr(0, longest));
  if (text.size() <= longest) return text;
  text.resize(longest);
  // Half a character at the end would make the journal take all of the text for binary. So the last
  // character goes, if it has more than one byte.
  const auto byteAtEnd = [&text] { return static_cast<unsigned char>(text.back()); };
  while ((byteAtEnd() & 0xC0U) == 0x80U) text.pop_back();
  if (byteAtEnd() >= 0xC0U) text.pop_back();
  return text;
}

int Severity(const JournalEntry& entry) { return entry.Warning ? LOG_WARNING : LOG_INFO; }

// False if the daemon does not take it at once: no connection waits for it.
bool SendTo(int socket, const std::string& path, std::string_view datagram) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return false;
  path.copy(address.sun_path, path.size());
  return ::sendto(socket, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&address), sizeof address) >= 0;
}

}  // namespace

std::string SystemJournal::ShownMessage(const JournalEntry& entry) const {
  std::string text = Shown(entry.Message, 4 * LongestValue);
  if (lost_ > 0) text += " (after " + std::to_string(lost_) + " lost entries)";
  return text;
}

// A line for each field. No value holds a line end once it is printable.
std::string SystemJournal::JournalDatagram(const JournalEntry& entry) const {
  std::string datagram = "MESSAGE=" + ShownMessage(entry);
  datagram += "\nPRIORITY=" + std::to_string(Severity(entry));
  datagram += "\nSYSLOG_IDENTIFIER=";
  datagram += Identifier;
  for (const JournalEntry::Field& field : entry.Fields) {
    datagram += '\n';
    datagram += field.Name;
    datagram += '=';
    datagram += Shown(field.Value, LongestValue);
  }
  if (lost_ > 0) datagram += "\nENTRIES_LOST=" + std::to_string(lost_);
  datagram += '\n';
  return datagram;
}

// The form that every syslog daemon reads: priority, local time with an English month, tag, text.
std::string SystemJournal::SyslogDatagram(const JournalEntry& entry) const {
  constexpr std::array months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  std::array<char, 100> head{};
  std::snprintf(head.data(), head.size(),
                "<%d>%s %2d %02d:%02d:%02d %s[%d]: ", LOG_USER | Severity(entry),
                months.at(static_cast<std::size_t>(local.tm_mon)), local.tm_mday, local.tm_hour,
                local.tm_min, local.tm_sec, Identifier.data(), static_cast<int>(::getpid()));
  return head.data() + ShownMessage(entry);
}

// The init system holds the journal's socket, so it stays while the daemon itself restarts.
SystemJournal::SystemJournal(const std::string& journalSocket, const std::string& syslogSocket)
    : hasFields_(::access(journalSocket.c_str(), F_OK) == 0),
      daemonSocket_(hasFields_ ? journalSocket : syslogSocket),
      socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {}

void SystemJournal::Write(const JournalEntry& entry) {
  const std::string datagram = hasFields_ ? JournalDatagram(entry) : SyslogDatagram(entry);
  lost_ = SendTo(socket_.Get(), daemonSocket_, datagram) ? 0 : lost_ + 1;
}

}  // namespace quorbin
