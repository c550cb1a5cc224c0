#include "FileReception.hpp"

#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "Allgemein.hpp"
#include "ConnectionRecord.hpp"
#include "ErrorLog.hpp"
#include "Lifecycle.hpp"
#include "PeerClosed.hpp"
#include "Protocol.hpp"
#include "RemoteName.hpp"
#include "StartViewer.hpp"
#include "Text.hpp"
#include "Words.hpp"

namespace quorbin {

namespace {

constexpr std::string_view LineEnd = "\r\n";

std::string GeneratedName(Form1& form) {
  // 24 random bits, as many as a single-precision number holds.
  const std::uint64_t bits = form.Rnd() >> 8U;
  return "temp" + std::to_string(bits * 1000000 / (1U << 24U) + 1) + ".tmp";
}

std::error_code OpenOutputFile(Form1& form) {
  const bool binary = form.Session.IsBinary;
  form.FControl.Write(Field::aktion, binary ? Aktion::OpenBinary : Aktion::OpenText);
  const std::string path = OutputPath(form.Session);
  return binary ? form.Files.OpenForBinary(path) : form.Files.OpenForOutput(path);
}

// Moves the transfer to a generated name after an error. What is in the old file stays there.
std::error_code OpenGenerated(Form1& form, const std::error_code& reason) {
  TransferSession& session = form.Session;
  session.MovedBy = ErrorText(reason.value(), reason.message());
  if (session.MovedFrom.empty()) session.MovedFrom = session.FileName;
  session.FileName = GeneratedName(form);
  form.FControl.Write(Field::dateiname, OutputPath(form.Session));
  return OpenOutputFile(form);
}

// Opens the file under the name that the sender gave. One that is not usable never reaches the
// file system.
std::error_code OpenAnnounced(Form1& form) {
  if (!IsUsableName(form.Session.FileName)) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  const std::string path = OutputPath(form.Session);
  form.Process.LetViewerTake(path);
  form.Files.Kill(path);
  return OpenOutputFile(form);
}

void BreakOff(Form1& form, const std::error_code& error) {
  LogError(form, error.value(), error.message());
  RecordConnection(form, Outcome::BrokenOff, Ending::Bad);  // PeerClosed then adds none
  PeerClosed(form);
}

// The length that a chunk's buffer header announces; nullopt if the chunk begins with none. The
// number may have a sign, and blanks around it.
std::optional<std::int32_t> AnnouncedLength(std::string_view chunk) {
  if (chunk.size() < BufferHeader::Size || !chunk.starts_with(BufferHeader::Token)) return {};
  std::string_view number = Trim(chunk.substr(BufferHeader::Token.size(), BufferHeader::Digits));
  if (number.starts_with('+')) {  // which from_chars does not take
    number.remove_prefix(1);
    if (number.starts_with('-')) return {};
  }
  std::int32_t length = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), length);
  if (error != std::errc() || end != number.data() + number.size()) return {};
  return length;
}

void LogBlock(Form1& form, std::int64_t bytes) {
  ++form.Session.BlockCount;
  if (form.Session.LogLevel != LogAllMessages) return;
  form.FControl.AppendLine(std::string(LogLine::Block) + NumberText(form.Session.BlockCount) +
                           std::string(LogLine::BlockBytes) + NumberText(bytes) +
                           std::string(LogLine::Bytes));
}

// Acknowledges a complete buffer, or reports its overrun, to a sender that has announced its
// version.
void AnswerBlock(Form1& form) {
  const TransferSession& session = form.Session;
  if (session.PeerVersion.empty() || session.BufLenLeft > 0) return;
  if (session.BufLenLeft < 0) {
    const std::string reply = std::string(Reply::BufferOverrun) + NumberText(session.BufLenLeft);
    form.Winsock1.SendData(reply);
    form.FControl.AppendLine(reply);
    return;
  }
  form.Winsock1.SendData(Reply::Ok);
  if (session.LogLevel == LogAllMessages) form.FControl.AppendLine(LogLine::RestZero);
}

void CloseFile(Form1& form) {
  const std::error_code error = form.Files.Close();
  form.Session.FileIsOpen = false;
  if (error) LogError(form, error.value(), error.message());
}

void RecordEnd(Form1& form, bool whole) {
  const bool started = form.Session.Task.has_value();
  RecordConnection(form, started ? Outcome::ViewerStarted : Outcome::ViewerNotStarted,
                   started && whole ? Ending::Good : Ending::Bad);
}

void EndOfDataPlain(Form1& form) {
  form.Winsock1.SendData(Reply::Ok);
  form.Winsock1.Close();
  form.FControl.Write(Field::aktion, Aktion::Executing);
  CloseFile(form);
  StartViewer(form);
  Listen(form);
  RecordEnd(form, true);
}

void EndOfDataBinary(Form1& form) {
  const std::int64_t left = form.Session.BufLenLeft;
  const std::string shortfall = std::string(Reply::BufferAtEof) + NumberText(left);
  form.Winsock1.SendData(left == 0 ? Reply::Ok : std::string_view(shortfall));
  form.Winsock1.Close();
  CloseFile(form);
  form.FControl.Write(Field::aktion, Aktion::ExecutingBinary);
  StartViewer(form);
  Listen(form);
  RecordEnd(form, left == 0);
}

// Removes the end marker from the end of the chunk; false if there is none.
bool TakeEndMarker(std::string_view& chunk) {
  if (!chunk.ends_with(Token::Eof)) return false;
  chunk.remove_suffix(Token::Eof.size());
  return true;
}

std::error_code WriteText(Form1& form) { return form.Files.Write(form.Session.RecvBuf, LineEnd); }

std::error_code WriteBinary(Form1& form) { return form.Files.Write(form.Session.RecvBuf); }

void TextChunk(Form1& form, std::int64_t ChunkLen) {
  form.Session.TotalBytes += ChunkLen;
  const bool last = TakeEndMarker(form.Session.RecvBuf);
  if (std::error_code error = WriteText(form)) {
    form.Files.Close();
    error = OpenGenerated(form, error);
    form.Session.TotalBytes = ChunkLen;  // what came before is not in this file
    if (!error) {
      form.FControl.Write(Field::aktion, Aktion::Writing);
      error = WriteText(form);
    }
    if (error) {
      BreakOff(form, error);
      return;
    }
  }
  LogBlock(form, ChunkLen);
  if (last) {
    EndOfDataPlain(form);
  } else {
    form.Winsock1.SendData(Reply::Ok);
  }
}

// Removes the buffer header from the start of RecvBuf. Returns its length in bytes; 0 if there is
// none.
std::int64_t TakeBufferHeader(Form1& form) {
  TransferSession& session = form.Session;
  const std::optional<std::int32_t> length = AnnouncedLength(session.RecvBuf);
  if (!length) return 0;
  constexpr auto headerSize = static_cast<std::int64_t>(BufferHeader::Size);
  session.BufLenLeft = *length;
  if (session.LogLevel == LogAllMessages) {
    form.FControl.AppendLine(std::string(LogLine::ReceivedBytes) +
                             NumberText(session.BufLenLeft - headerSize));
  }
  session.RecvBuf.remove_prefix(BufferHeader::Size);
  return headerSize;
}

void BinaryChunk(Form1& form, std::int64_t ChunkLen) {
  TransferSession& session = form.Session;
  const std::int64_t counted = ChunkLen - TakeBufferHeader(form);
  session.TotalBytes += counted;
  session.BufLenLeft -= ChunkLen;
  const bool last = TakeEndMarker(session.RecvBuf);
  // A block is logged before it is written, but the last one after.
  if (!last) {
    form.FControl.Write(Field::aktion, Aktion::WritingBinary);
    LogBlock(form, ChunkLen);
  }
  if (std::error_code error = WriteBinary(form)) {
    form.Files.Close();
    error = OpenGenerated(form, error);
    session.TotalBytes = counted;  // what came before is not in this file
    if (!error) {
      form.FControl.Write(Field::aktion, Aktion::WritingBinary);
      LogBlock(form, ChunkLen);
      error = WriteBinary(form);
    }
    if (error) {
      BreakOff(form, error);
      return;
    }
  } else if (last) {
    LogBlock(form, ChunkLen);
  }
  if (last) {
    EndOfDataBinary(form);
  } else {
    AnswerBlock(form);
  }
}

}  // namespace

void AcceptData(Form1& form) {
  TransferSession& session = form.Session;
  if (session.ViewerCmd.empty()) {
    form.Winsock1.SendData(Reply::Kdo);
    form.FControl.Write(Field::resu, Resu::WrongCommand);
    form.FControl.Write(Field::aktion, Aktion::Listening);
    form.Winsock1.Close();
    Listen(form);
    const bool refused = !session.ExtRefusal.empty();
    RecordConnection(form, refused ? std::string_view(session.ExtRefusal) : Resu::WrongCommand,
                     Ending::Bad);
    return;
  }
  if (session.FileName.empty()) session.FileName = GeneratedName(form);
  form.FControl.Write(Field::dateiname, OutputPath(form.Session));
  if (const std::error_code reason = OpenAnnounced(form)) {
    if (const std::error_code error = OpenGenerated(form, reason)) {
      BreakOff(form, error);
      return;
    }
  }
  session.FileIsOpen = true;
  session.InDataPhase = true;
  form.Winsock1.SendData(Reply::Ok);
}

void ReceiveChunk(Form1& form, std::int64_t ChunkLen) {
  TransferSession& session = form.Session;
  if (session.RecvBuf.starts_with(Token::Eof)) {
    // In binary mode, too, the end is the plain one: bytes that are missing from the last buffer
    // are reported only if the marker comes at the end of a chunk of content.
    EndOfDataPlain(form);
    return;
  }
  form.FControl.Write(Field::aktion, Aktion::Writing);
  if (session.IsBinary) {
    BinaryChunk(form, ChunkLen);
  } else {
    TextChunk(form, ChunkLen);
  }
}

}  // namespace quorbin
