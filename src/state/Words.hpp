#pragma once

// The words of the status fields and of the log. Those that only the journal has are in session's
// ConnectionRecord.hpp.

#include <string_view>

namespace quorbin {

namespace Aktion {
inline constexpr std::string_view Listening = "listening";
inline constexpr std::string_view Connected = "Connected";
inline constexpr std::string_view ExtRefused = "EXT";
inline constexpr std::string_view OpenText = "open textfile";
inline constexpr std::string_view OpenBinary = "open binary file";
inline constexpr std::string_view Writing = "writing file";
inline constexpr std::string_view WritingBinary = "writing file (B)";
inline constexpr std::string_view Executing = "executing command";
inline constexpr std::string_view ExecutingBinary = "executing command (B)";
}  // namespace Aktion

namespace Resu {
inline constexpr std::string_view Ok = "OK";
inline constexpr std::string_view HostDenied = "Hostaccess denied";
inline constexpr std::string_view WrongCommand = "wrong command";
inline constexpr std::string_view WrongParam = "wrong param";
inline constexpr std::string_view UnknownAction = "unknown action";
inline constexpr std::string_view WrongExtension = "wrong extension";
inline constexpr std::string_view ExtensionDenied = "extension denied";
inline constexpr std::string_view StartedTask = "started task ";  // the task number follows
}  // namespace Resu

namespace Ftp {
inline constexpr std::string_view Binary = "binary";
inline constexpr std::string_view Text = "text";
}  // namespace Ftp

inline constexpr std::string_view AutomaticExt = "(automatic) ";  // in fext, the extension follows
inline constexpr std::string_view PartnerVersion = " (Version ";  // in partner, after its name

// Lines of Satz, or the parts of a line around its numbers.
namespace LogLine {
inline constexpr std::string_view ReceivedBytes = "Received Bytes: ";
inline constexpr std::string_view Block = "Block ";
inline constexpr std::string_view BlockBytes = ": ";
inline constexpr std::string_view Bytes = " Bytes";
inline constexpr std::string_view RestZero = "+OK: Rest = 0";
inline constexpr std::string_view FileWritten = "File written with ";
inline constexpr std::string_view Error = "Error: ";
}  // namespace LogLine

// Keywords of the settings.
namespace Keyword {
inline constexpr std::string_view Deny = "*deny";
inline constexpr std::string_view Allow = "*allow";
inline constexpr std::string_view Reg = "*reg";
}  // namespace Keyword

// Values of the link channel's item stopsrv.
namespace Stopsrv {
inline constexpr std::string_view Ok = "OK";  // no command has changed it yet
inline constexpr std::string_view Con = "con";
inline constexpr std::string_view Dis = "dis";
inline constexpr std::string_view Stopped = "quorbin stopped";
}  // namespace Stopsrv

}  // namespace quorbin
