#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace quorbin {

// Values of LogLevel.
inline constexpr std::int16_t LogNormal = 1;       // failures and results only
inline constexpr std::int16_t LogAllMessages = 2;  // every message as well

// The same for all connections: set at start-up, and LogLevel also by the box CheckLog.
struct SessionSettings {
  std::int16_t LogLevel = 0;
  std::string TempDir;         // directory of received files, no closing separator added
  std::string NamePrefix;      // begins with the separator, ends with a dot
  std::string SystemRootDir;   // replaces %SystemRoot% at the start of a command line
  std::string ProgramVersion;  // sent to senders
};

// Everything about the connection in progress. The fields of a finished one stay readable until the
// next is accepted. All lengths are in bytes.
struct TransferSession : SessionSettings {
  TransferSession() = default;
  // The session of a new connection: the settings stay, every other field has its initial value.
  explicit TransferSession(SessionSettings&& settings) : SessionSettings(std::move(settings)) {}

  std::string_view RecvBuf;  // the chunk being handled: the socket object's bytes, gone at Close
  std::string FileName;      // name part of the output file, without directory or prefix
  std::string Ext;           // extension with its dot, as sent or taken from FileName
  std::string KdoExt;        // sender's text after the file name on the viewer's command line
  std::string KdoPrf;        // sender's text before it
  std::string ViewerCmd;     // open command for Ext; empty: no viewer may be started
  std::string PeerVersion;   // not empty: buffers of binary content are acknowledged
  bool InDataPhase = false;  // $DATA$ was accepted: every chunk is file content
  bool IsBinary = false;     // output mode, read when the file is opened
  bool FileIsOpen = false;   // false again at the regular end of the data
  bool ExtAllowed = false;   // last answer of ResolveExtension
  bool HostAllowed = false;  // host decision of this connection
  bool AnyMessage = false;   // a message has come on this connection
  std::int64_t BlockCount = 0;
  std::int64_t BufLenLeft = 0;  // still owed of the announced buffer; negative: too much came
  std::int64_t TotalBytes = 0;  // received for the output file, buffer headers not counted

  // For the journal alone, which gets one entry when the connection ends.
  bool Unrecorded = false;  // the entry of this connection is still to be written
  std::string PeerAddress;  // as CheckHost saw it
  std::string DecidedBy;    // what admitted or refused the peer
  std::string ExtRefusal;   // why Ext may not be opened, empty if it may
  std::string CommandLine;  // of the viewer that was started, or was to be
  std::optional<int> Task;  // its number; nullopt if none was started
  std::string LastError;    // number and text of the last line "Error: " of the log
  std::string MovedFrom;    // announced name, if the transfer went on under a generated one
  std::string MovedBy;      // number and text of the error that was the reason, the last if two
  std::chrono::steady_clock::time_point Begin = std::chrono::steady_clock::now();
};

// What the names of all received files begin with, directory included.
inline std::string TempFilePrefix(const TransferSession& session) {
  return session.TempDir + session.NamePrefix;
}

// Where the present file goes.
inline std::string OutputPath(const TransferSession& session) {
  return TempFilePrefix(session) + session.FileName;
}

}  // namespace quorbin
