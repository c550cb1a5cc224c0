// quorbin-send: hands files to the service, one connection per file. It is the reference for other
// senders: the whole protocol from the sender's side, in the order of a conversation.
//
// There is no framing. What the service finds at one look at the socket is one message, and what
// one receive gives is one reply. Hence the rule that all below follows: send one message in one
// piece, wait for its reply, and only then send the next.

#include <fcntl.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "LastError.hpp"
#include "Printable.hpp"
#include "ProgressBar.hpp"
#include "Protocol.hpp"
#include "ServiceConnection.hpp"

namespace quorbin {
namespace {

using Clock = std::chrono::steady_clock;

// Between the end of one transfer and the start of its viewer the service does not listen, and a
// sender that comes back at once is refused. So a refused connection is tried again this long.
constexpr std::chrono::milliseconds RefusedFor{2000};
constexpr std::chrono::milliseconds RefusedPause{20};

// Bytes. A buffer below 64 KiB crosses the loopback in one piece and fits the first receive window
// of every system, so the service sees it as one chunk; larger ones gain little.
constexpr std::size_t DefaultBuffer = std::size_t{32} * 1024;

// Bytes. A longer line would hardly arrive in one piece, and each piece becomes a line of its own.
constexpr std::size_t MaxLine = std::size_t{32} * 1024;

struct Options {
  std::string host = "127.0.0.1";
  int port = DefaultPort;
  bool text = false;
  bool noVersion = false;
  std::optional<std::string> ext;
  std::optional<std::string> name;
  std::string prefix;
  std::string suffix;
  std::size_t buffer = DefaultBuffer;  // bytes, the buffer's header included
  int timeout = 60;                    // seconds
  std::vector<std::string> files;
};

// ---- Replies

[[noreturn]] void Refuse(const std::string& reply) {
  std::string sentence = "unexpected reply";
  if (reply == Reply::Param) sentence = "the service does not know this message";
  if (reply == Reply::Ext) sentence = "the service refuses the extension";
  if (reply == Reply::Kdo) sentence = "the service has no viewer for this extension";
  if (reply == Reply::Nak) sentence = "the service has no file open";
  if (reply.starts_with(Reply::BufferOverrun)) sentence = "a buffer arrived longer than announced";
  if (reply.starts_with(Reply::BufferAtEof)) {
    sentence = "the file is cut short at an end marker in it, or has changed meanwhile";
  }
  throw Failure{sentence, reply};
}

// Sends one message and waits for its "+OK".
void Ask(ServiceConnection& service, std::string_view message) {
  service.Send(message);
  const std::string reply = service.Receive();
  if (reply != Reply::Ok) Refuse(reply);
}

// ---- Control messages

// A token and its value, which may hold any bytes. The service takes one NAK from the end of a
// message, so a value that ends in one gets another behind it.
std::string Message(std::string_view token, std::string_view value) {
  std::string message(token);
  message += value;
  if (message.back() == Nak) message += Nak;
  return message;
}

void SendHead(ServiceConnection& service, const Options& options, const std::string& name) {
  if (!options.noVersion) {
    // Any version that is not empty has binary buffers acknowledged.
    service.Send(Message(Token::Version, QUORBIN_TOOL_VERSION));
    const std::string reply = service.Receive();
    if (!reply.starts_with(Reply::Ok)) Refuse(reply);  // the service's version stands behind it
  }
  if (options.ext) Ask(service, Message(Token::Ext, *options.ext));
  Ask(service, options.text ? Token::FileTypeText : Token::FileTypeBinary);
  if (!options.prefix.empty()) Ask(service, Message(Token::KdoPrf, options.prefix));
  if (!options.suffix.empty()) Ask(service, Message(Token::KdoExt, options.suffix));
  Ask(service, Message(Token::File, name));
  Ask(service, Token::Data);
}

// ---- Content

// A file to send, or standard input.
struct Source {
  Fd fd;
  std::optional<std::int64_t> size;  // bytes; nothing for what is no regular file

  // Returns the number of bytes read, 0 at the end.
  std::size_t Read(char* bytes, std::size_t limit) const {
    ssize_t n = 0;
    do n = read(fd.Get(), bytes, limit);
    while (n < 0 && errno == EINTR);
    if (n < 0) throw Failure{"read error: " + LastError().message()};
    return static_cast<std::size_t>(n);
  }
};

Source OpenSource(const std::string& file) {
  Source source{Fd(file == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                               : open(file.c_str(), O_RDONLY | O_CLOEXEC)),
                std::nullopt};
  struct stat status {};
  if (!source.fd || fstat(source.fd.Get(), &status) != 0) throw Failure{LastError().message()};
  if (S_ISDIR(status.st_mode))
    throw Failure{std::make_error_code(std::errc::is_a_directory).message()};
  if (S_ISREG(status.st_mode)) {
    source.size = status.st_size - std::max<off_t>(0, lseek(source.fd.Get(), 0, SEEK_CUR));
  }
  return source;
}

// The same bytes from a file without a name, whose size is known.
Source Spool(const Source& source) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::tmpfile(), std::fclose);
  if (!file) throw Failure{LastError().message()};
  std::vector<char> piece(DefaultBuffer);
  std::int64_t size = 0;
  while (const std::size_t n = source.Read(piece.data(), piece.size())) {
    if (std::fwrite(piece.data(), 1, n, file.get()) != n) throw Failure{LastError().message()};
    size += static_cast<std::int64_t>(n);
  }
  if (std::fseek(file.get(), 0, SEEK_SET) != 0)
    throw Failure{LastError().message()};  // writes it out
  return {Fd(fcntl(fileno(file.get()), F_DUPFD_CLOEXEC, 0)), size};
}

// Sends one line as one message. The service ends it with CR LF in the file.
void SendLine(ServiceConnection& service, std::string_view line, std::size_t number) {
  const auto refuse = [&](const std::string& why) {
    throw Failure{"line " + std::to_string(number) + " " + why + "; send it as binary"};
  };
  if (line.size() > MaxLine) refuse("is longer than " + std::to_string(MaxLine) + " bytes");
  if (line.starts_with(Token::Eof) || line.ends_with(Token::Eof)) {
    refuse("begins or ends with " + std::string(Token::Eof));
  }
  Ask(service, line.empty() ? " " : line);  // an empty message can't be sent
}

void SendText(ServiceConnection& service, const Source& source, ProgressBar& progress) {
  std::vector<char> piece(DefaultBuffer);
  std::string pending;  // read, but not yet a whole line
  std::size_t number = 0;
  while (const std::size_t n = source.Read(piece.data(), piece.size())) {
    pending.append(piece.data(), n);
    std::string_view rest = pending;
    for (std::size_t lf = 0; (lf = rest.find('\n')) != rest.npos; rest.remove_prefix(lf + 1)) {
      const std::string_view line = rest.substr(0, lf);
      SendLine(service, line.substr(0, lf - (line.ends_with('\r') ? 1 : 0)), ++number);
      progress.Add(lf + 1);
    }
    pending.erase(0, pending.size() - rest.size());
    if (pending.size() > MaxLine + 1) SendLine(service, pending, number + 1);  // refused in there
  }
  if (!pending.empty()) SendLine(service, pending, ++number);
  progress.Add(pending.size());
}

// Announces a buffer of that many bytes, its header included.
std::string Header(std::size_t length) {
  char header[BufferHeader::Size + 1];
  std::snprintf(header, sizeof header, "%s%0*zu", BufferHeader::Token.data(),
                static_cast<int>(BufferHeader::Digits), length);
  return header;
}

// Binary content in acknowledged buffers: header, payload, "+OK". The header keeps the end marker
// away from the front of a buffer; the cut keeps it away from the end, so content that holds the
// marker is safe as long as the network delivers each buffer in one piece. Where it does not, a
// marker at just that border ends the file: the next reply or the close then tells, and the
// transfer fails. Smaller buffers (--buffer 1400) make that rarer.
void SendBuffers(ServiceConnection& service, const Source& source, std::size_t size,
                 ProgressBar& progress) {
  const std::size_t capacity = size - BufferHeader::Size;
  const auto buffer = std::make_unique_for_overwrite<char[]>(size);
  char* const payload = buffer.get() + BufferHeader::Size;
  std::size_t held = 0;  // bytes of the payload that the last buffer left over: 0 or 1
  for (;;) {
    std::size_t length = held + source.Read(payload + held, capacity - held);
    if (length == 0) return;
    held = std::string_view(payload, length).ends_with(Token::Eof) ? 1 : 0;
    length -= held;
    std::ranges::copy(Header(BufferHeader::Size + length), buffer.get());
    Ask(service, {buffer.get(), BufferHeader::Size + length});
    if (held != 0) payload[0] = payload[length];
    progress.Add(length);
  }
}

// Binary content without acknowledgement, as one stream. Chunks begin and end where the network
// lets them, and nothing tells the sender what the service made of them: the end marker at a border
// would end the file, the token of a buffer's header would be taken for one. So content that holds
// either is refused before the service has seen the whole of it. One header announces all that
// comes, the end marker included: the count comes out wherever the marker arrives.
void SendStream(ServiceConnection& service, const Source& source, ProgressBar& progress) {
  const std::uint64_t length =
      BufferHeader::Size + static_cast<std::uint64_t>(*source.size) + Token::Eof.size();
  if (length > BufferHeader::MaxLength) throw Failure{"too long a stream; leave out --no-version"};
  service.Send(Header(length));
  std::string window;  // a piece, behind as much of the piece before as may begin a token
  for (;;) {
    const std::size_t kept = std::min(window.size(), BufferHeader::Token.size() - 1);
    window.erase(0, window.size() - kept);
    window.resize(kept + DefaultBuffer);
    const std::size_t n = source.Read(window.data() + kept, DefaultBuffer);
    window.resize(kept + n);
    if (n == 0) break;
    for (const std::string_view token : {Token::Eof, BufferHeader::Token}) {
      if (window.find(token) == window.npos) continue;
      throw Failure{"the content holds " + std::string(token) + "; leave out --no-version"};
    }
    service.Send(std::string_view(window).substr(kept));
    progress.Add(n);
  }
  service.Flush();  // or the marker might be torn apart
}

// ---- A file from connect to close

void SendFile(const Options& options, const std::string& name, const Source& source) {
  ServiceConnection service(options.host, options.port, options.timeout);
  SendHead(service, options, name);
  ProgressBar progress(name, source.size);
  if (options.text) {
    SendText(service, source, progress);
  } else if (options.noVersion) {
    SendStream(service, source, progress);
  } else {
    SendBuffers(service, source, options.buffer, progress);
  }
  Ask(service, Token::Eof);
  if (!service.ClosesSilently()) {
    throw Failure{"more replies than messages: the network has split a message, check the file"};
  }
}

// Throws Failure.
void Deliver(const Options& options, const std::string& file) {
  const std::string base = file == "-" ? "stdin" : file.substr(file.rfind('/') + 1);
  const std::string name = options.name.value_or(base);
  // The service drops blanks at the end of a value (except of the prefix).
  if (name.ends_with(' ')) throw Failure{"the name ends in a blank; give another with --name"};
  if (options.ext && options.ext->ends_with(' ')) throw Failure{"the extension ends in a blank"};
  Source source = OpenSource(file);
  if (options.noVersion && !options.text && !source.size) source = Spool(source);
  for (const Clock::time_point giveUp = Clock::now() + RefusedFor;;) {
    try {
      return SendFile(options, name, source);
    } catch (const Failure& failure) {
      if (!failure.busy || Clock::now() >= giveUp) throw;
    }
    std::this_thread::sleep_for(RefusedPause);
  }
}

const char* const Notes =
    R"(The service takes the extension from the last four bytes of the name unless --ext
is given, so names like page.html and standard input need --ext.

Text: each line is sent by itself and ends with CR LF in the received file; LF or
CR LF at its end is not sent. A blank line goes as one blank. A line that begins or
ends with $EOF$, or is longer than 32768 bytes, fails the file.

--no-version: binary content goes as one stream without acknowledgement. Content
that holds $EOF$ or $BUFFLEN$, or is longer than 2147483623 bytes, can't be sent
so and fails.

A file called - or [x] is given as ./- or ./[x].

Exit status: 0 if every file was received, 75 if the connection was all that failed, so
the same may get through later, 1 for any other failure, else above 1 for wrong usage.

Examples:
  quorbin-send report.pdf
  quorbin-send --host desk7 --text --suffix /p list.txt
  make-page | quorbin-send --name page.html --ext .htm -)";

}  // namespace
}  // namespace quorbin

int main(int argc, char** argv) try {
  using namespace quorbin;
  std::signal(SIGPIPE, SIG_IGN);

  Options options;
  bool binary = false;
  CLI::App app("Sends files to the Quorbin service, which opens each in its viewer.",
               "quorbin-send");
  app.set_version_flag("--version", QUORBIN_TOOL_VERSION);
  app.add_option("--host", options.host, "Host of the service")->capture_default_str();
  app.add_option("--port", options.port, "Its port")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str();
  CLI::Option* text = app.add_flag("--text", options.text, "Send lines of text");
  app.add_flag("--binary", binary, "Send the bytes as they are (default)")->excludes(text);
  app.add_option("--ext", options.ext, "Extension with its dot, chooses the viewer");
  CLI::Option* name = app.add_option("--name", options.name,
                                     "Name of the received file; the file's own by default");
  app.add_option("--prefix", options.prefix,
                 "Text before the file name on the viewer's command line");
  app.add_option("--suffix", options.suffix, "Text behind it; blanks at its end are lost");
  app.add_option("--buffer", options.buffer,
                 "Bytes per buffer of binary content, its header of 19 included")
      ->check(CLI::Range(BufferHeader::Size + 1, static_cast<std::size_t>(BufferHeader::MaxLength)))
      ->capture_default_str();
  app.add_flag("--no-version", options.noVersion, "Send no version: no acknowledgements");
  app.add_option("--timeout", options.timeout, "Seconds to wait for a reply")
      ->check(CLI::Range(1, 86400))
      ->capture_default_str();
  app.add_option("FILE", options.files, "Files to send; - is standard input")->required();
  app.footer(Notes);
  try {
    app.parse(argc, argv);
    if (*name && options.files.size() > 1) {
      throw CLI::ValidationError("--name", "goes with one file only");
    }
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  }

  int status = 0;
  for (const std::string& file : options.files) {
    try {
      Deliver(options, file);
    } catch (const Failure& failure) {
      std::cerr << "quorbin-send: " << Printable(file) << ": " << failure.sentence;
      if (!failure.reply.empty()) std::cerr << " (reply \"" << Printable(failure.reply) << "\")";
      std::cerr << '\n';
      if (!failure.lost) status = 1;
      if (status == 0) status = EX_TEMPFAIL;
    } catch (const std::bad_alloc&) {
      std::cerr << "quorbin-send: " << Printable(file) << ": not enough memory for the buffer\n";
      status = 1;
    }
  }
  return status;
} catch (const std::exception& error) {
  std::fprintf(stderr, "quorbin-send: %s\n", error.what());
  return 1;
}
