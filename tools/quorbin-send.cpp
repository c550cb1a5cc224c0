// quorbin-send: hands files to the service, one connection per file. It is the reference for other
// senders: all of the protocol from the sender's side, in the order of a conversation.
//
// There is no framing. What the service receives at once is one message, and what one receive
// returns is one reply. Hence the rule that everything below follows: send one message in one
// piece, wait for its reply, and only then send the next.

#include <sysexits.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <new>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Content.hpp"
#include "LinkPlace.hpp"
#include "Printable.hpp"
#include "ProgressBar.hpp"
#include "Protocol.hpp"
#include "RemoteName.hpp"
#include "ServiceConnection.hpp"
#include "Usage.hpp"

namespace quorbin {
namespace {

using Clock = std::chrono::steady_clock;

// Pauses between two tries of a busy service: random, so that many senders do not try at the same
// moments, and each between half of a bound and all of it; the bound doubles. Between the end of
// one transfer and the start of its viewer the service is away for about the first.
constexpr std::chrono::microseconds FirstPause{1000};
constexpr std::chrono::microseconds LongestPause{100000};

// Bytes. Each buffer waits for its acknowledgement, so larger ones are faster: with 20 ms for a
// round trip 32 KiB gave 1.4 MiB/s, 256 KiB 11, 1 MiB 36, 4 MiB 84; over the loopback more than 256
// KiB gains little. But the acknowledgement must come within the timeout, on a slow line too.
constexpr std::size_t DefaultBuffer = std::size_t{1024} * 1024;

constexpr int WrongUsage = 2;

struct Options {
  std::string host = "127.0.0.1";
  int port = DefaultPort;
  std::string socket;     // path; empty: host and port
  bool findPlace = true;  // none of the three was given
  bool text = false;
  bool noVersion = false;
  std::optional<std::string> ext;
  std::optional<std::string> name;
  std::string prefix;
  std::string suffix;
  std::size_t buffer = DefaultBuffer;  // bytes, the buffer's header included
  int wait = 30;                       // seconds, for a busy service
  int timeout = 60;                    // seconds
  std::vector<std::string> files;
};

// ---- The extension

// The suffix of the last part of the name, with its dot.
std::string SuffixOf(const std::string& name) {
  const std::string reduced = ReduceName(name);
  const std::size_t dot = reduced.rfind('.');
  if (dot == reduced.npos || dot + 1 == reduced.size() || reduced.find('/', dot) != reduced.npos) {
    throw Failure{"the name has no extension, which chooses the viewer; give one with --ext"};
  }
  return reduced.substr(dot);
}

// ---- Control messages

// A token and its value, which may hold any bytes. The service takes one NAK from the end of a
// message, so a value that ends in one gets another after it.
std::string Message(std::string_view token, std::string_view value) {
  std::string message(token);
  message += value;
  if (message.back() == Nak) message += Nak;
  return message;
}

void SendHead(ServiceConnection& service, const Options& options, const std::string& name,
              const std::string& ext) try {
  if (!options.noVersion) {
    // Any version that is not empty has binary buffers acknowledged.
    service.Send(Message(Token::Version, QUORBIN_TOOL_VERSION));
    const std::string reply = service.Receive();
    if (!reply.starts_with(Reply::Ok)) throw Refusal(reply);  // the service's version follows
  }
  if (options.ext || DeriveExt(ReduceName(name)) != ext) service.Ask(Message(Token::Ext, ext));
  service.Ask(options.text ? Token::FileTypeText : Token::FileTypeBinary);
  if (!options.prefix.empty()) service.Ask(Message(Token::KdoPrf, options.prefix));
  if (!options.suffix.empty()) service.Ask(Message(Token::KdoExt, options.suffix));
  service.Ask(Message(Token::File, name));
  service.Ask(Token::Data);
} catch (Failure& failure) {
  if (failure.reply == Reply::Ext || failure.reply == Reply::Kdo) {
    failure.sentence = "the service denies the extension " + ext +
                       (options.ext ? "" : ", taken from the name,") +
                       " or has no viewer for it; try another with --ext";
  }
  throw;
}

// ---- A file from connect to close

void SendFile(ServiceConnection& service, const Options& options, const std::string& name,
              const std::string& ext, const Source& source, ProgressBar& progress) {
  SendHead(service, options, name, ext);
  progress.Begin();
  if (options.text) {
    SendText(service, source, progress);
  } else if (options.noVersion) {
    SendStream(service, source, progress);
  } else {
    SendBuffers(service, source, options.buffer, progress);
  }
  service.Ask(Token::Eof);
  if (!service.ClosesSilently()) {
    throw Failure{"more replies than messages: the network has split a message, check the file"};
  }
}

// Where the service is. By default that is the socket of this user's own service, where there is
// one. Throws Failure.
ServiceAddress FindService(const Options& options) {
  if (!options.socket.empty()) return {options.socket, nullptr};
  const std::string own = RunTimeDirectory("Quorbin") + "/" + std::string(LocalSocketName);
  std::error_code ignored;
  if (options.findPlace && std::filesystem::is_socket(own, ignored)) return {own, nullptr};
  return FindHost(options.host, options.port);
}

// Throws Failure.
void Deliver(const Options& options, const std::string& file) {
  const std::string base = file == "-" ? "stdin" : file.substr(file.rfind('/') + 1);
  const std::string name = options.name.value_or(base);
  // The service drops blanks at the end of a value (except of the prefix).
  if (name.ends_with(' ')) throw Failure{"the name ends in a blank; give another with --name"};
  if (options.ext && options.ext->ends_with(' ')) throw Failure{"the extension ends in a blank"};
  Source source = OpenSource(file);
  const std::string ext = options.ext ? *options.ext : SuffixOf(name);

  // A transfer that breaks off costs the service its other files, so what can't be sent is found
  // before it begins. Buffers take anything.
  const bool anything = !options.text && !options.noVersion;
  if (!anything && !source.size) source = Spool(source);
  if (options.text) CheckText(source);
  if (options.noVersion && !options.text) CheckStream(source);

  ProgressBar progress(name, source.size);
  std::minstd_rand random(std::random_device{}());
  const auto giveUp = Clock::now() + std::chrono::seconds(options.wait);
  for (std::chrono::microseconds bound = FirstPause;; bound = std::min(2 * bound, LongestPause)) {
    const auto left = std::chrono::ceil<std::chrono::seconds>(giveUp - Clock::now());
    const int connectTime = options.wait == 0
                                ? options.timeout
                                : std::clamp(static_cast<int>(left.count()), 1, options.timeout);
    try {
      ServiceConnection service(FindService(options), connectTime, options.timeout);
      return SendFile(service, options, name, ext, source, progress);
    } catch (Failure& failure) {
      if (!failure.busy) throw;
      if (Clock::now() >= giveUp) {
        if (options.wait > 0)
          failure.sentence += "; tried for " + std::to_string(options.wait) + " s";
        throw;
      }
    }
    progress.Waits();
    std::uniform_int_distribution<std::chrono::microseconds::rep> pause(bound.count() / 2,
                                                                        bound.count());
    std::this_thread::sleep_for(std::chrono::microseconds(pause(random)));
  }
}

const char* const Notes =
    R"(The extension chooses the viewer. Unless --ext is given it is the suffix of the name;
standard input has none.

A service that serves another sender, or does not run, is tried again for --wait
seconds.

Text: each line is sent by itself and ends with CR LF in the received file; LF or
CR LF at its end is not sent. A blank line goes as one blank. A line that begins or
ends with $EOF$, or is longer than 32768 bytes, fails the file before it is sent.

--no-version: binary content goes as one stream without acknowledgement. Content
that holds $EOF$ or $BUFFLEN$, ends with $EOF, or is longer than 2147483623 bytes,
can't be sent so and fails before it is sent.

A file called - or [x] is given as ./- or ./[x].

Without --host, --port and --socket a file goes to the socket of your own service, if it
has one, else to port 9438 of this machine.

Exit status: 0 if every file was received. Else that of the first that was not: 75 if there
was no connection or it broke, so the same may get through later, 66 if the file can't be
read, 1 for any other reason, a refusal for instance. 2 is wrong usage.

Examples:
  quorbin-send report.pdf
  quorbin-send --host desk7 --text --suffix /p list.txt
  make-page | quorbin-send --name page.html -)";

}  // namespace
}  // namespace quorbin

int main(int argc, char** argv) try {
  using namespace quorbin;
  std::signal(SIGPIPE, SIG_IGN);

  Options options;
  bool binary = false;
  CLI::App app("Sends files to the Quorbin service, which opens each in its viewer.",
               "quorbin-send");
  NameInUsageErrors(app);
  app.set_version_flag("--version", QUORBIN_TOOL_VERSION);
  CLI::Option* host =
      app.add_option("--host", options.host, "Host of the service")->capture_default_str();
  CLI::Option* port = app.add_option("--port", options.port, "Its port")
                          ->check(CLI::Range(1, 65535))
                          ->capture_default_str();
  app.add_option("--socket", options.socket, "Unix socket of a service that has no port")
      ->excludes(host, port);
  CLI::Option* text = app.add_flag("--text", options.text, "Send lines of text");
  app.add_flag("--binary", binary, "Send the bytes as they are (default)")->excludes(text);
  app.add_option("--ext", options.ext, "Extension, chooses the viewer; by default the name's own");
  CLI::Option* name = app.add_option("--name", options.name,
                                     "Name of the received file; the file's own by default");
  app.add_option("--prefix", options.prefix,
                 "Text before the file name on the viewer's command line");
  app.add_option("--suffix", options.suffix, "Text after it; blanks at its end are lost");
  app.add_option("--buffer", options.buffer,
                 "Bytes per buffer of binary content, its header of 19 included")
      ->check(CLI::Range(BufferHeader::Size + 1, static_cast<std::size_t>(BufferHeader::MaxLength)))
      ->capture_default_str();
  app.add_flag("--no-version", options.noVersion, "Send no version: no acknowledgements");
  app.add_option("--wait", options.wait, "Seconds to try a busy service; 0: once")
      ->check(CLI::Range(0, 86400))
      ->capture_default_str();
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
    if (options.ext && !options.ext->starts_with('.')) options.ext->insert(0, 1, '.');
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : WrongUsage;
  }
  options.findPlace = !*host && !*port && options.socket.empty();

  int status = 0;
  for (const std::string& file : options.files) {
    try {
      Deliver(options, file);
    } catch (const Failure& failure) {
      std::cerr << "quorbin-send: " << Printable(file) << ": " << Printable(failure.sentence);
      if (!failure.reply.empty()) std::cerr << " (reply \"" << Printable(failure.reply) << "\")";
      std::cerr << '\n';
      if (status == 0) status = failure.lost ? EX_TEMPFAIL : failure.unreadable ? EX_NOINPUT : 1;
    } catch (const std::bad_alloc&) {
      std::cerr << "quorbin-send: " << Printable(file) << ": not enough memory for the buffer\n";
      if (status == 0) status = 1;
    }
  }
  return status;
} catch (const std::exception& error) {
  std::fprintf(stderr, "quorbin-send: %s\n", error.what());
  return 1;
}
