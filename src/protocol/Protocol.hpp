#pragma once

// The texts of the wire protocol, for the service and for its senders.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quorbin {

inline constexpr std::int32_t DefaultPort = 9438;

// The address to listen on that means the Unix socket in the run-time directory, and the address
// of the peers that connect to it.
inline constexpr std::string_view LocalPeer = "*local";

// What a control message begins with.
namespace Token {
inline constexpr std::string_view Version = "$VERSION$:";
inline constexpr std::string_view Eof = "$EOF$";  // also ends the file content
inline constexpr std::string_view DataHdr = "$DATAHDR$";
inline constexpr std::string_view Data = "$DATA$";
inline constexpr std::string_view File = "$FILE$:";
inline constexpr std::string_view Ext = "$EXT$:";
inline constexpr std::string_view FileTypeBinary = "$FILETYPE$:B";
inline constexpr std::string_view FileTypeText = "$FILETYPE$:T";
inline constexpr std::string_view KdoExt = "$KDOEXT$:";
inline constexpr std::string_view KdoPrf = "$KDOPRF$:";
}  // namespace Token

// A byte that some senders append to a control message.
inline constexpr char Nak = 21;

// Head of a buffer of binary content: the token, then the length of the buffer, head included, as
// decimal text of fixed width.
namespace BufferHeader {
inline constexpr std::string_view Token = "$BUFFLEN$";
inline constexpr std::size_t Digits = 10;
inline constexpr std::size_t Size = Token.size() + Digits;
inline constexpr std::uint64_t MaxLength = 2147483647;
}  // namespace BufferHeader

// The beginning of an HTTP request: a method, a blank, and a target that starts with a slash, an
// asterisk or a scheme.
namespace Http {
inline constexpr std::string_view MethodLetters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-.!#$%&'*^_`|~";
inline constexpr std::string_view SchemeLetters = MethodLetters.substr(0, MethodLetters.find('!'));
inline constexpr std::string_view SchemeEnd = "://";
inline constexpr std::size_t LongestMethod = 1024;  // beyond it a method needs no blank to be one
}  // namespace Http

// Replies. None ends with a line end.
namespace Reply {
inline constexpr std::string_view Ok = "+OK";
inline constexpr std::string_view Param = "-PARAM";
inline constexpr std::string_view Ext = "-EXT";
inline constexpr std::string_view Kdo = "-KDO";
inline constexpr std::string_view Nak = "-NAK";
// The number text of the outstanding bytes follows; \xE4 is the letter a with two dots.
inline constexpr std::string_view BufferOverrun =
    "-Fehler: Daten l\xE4nger als Pufferl\xE4nge: Rest=";
inline constexpr std::string_view BufferAtEof = "-Fehler: Buffer-length at EOF: ";
}  // namespace Reply

}  // namespace quorbin
