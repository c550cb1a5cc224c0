#include "Content.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "LastError.hpp"
#include "Protocol.hpp"

namespace quorbin {
namespace {

// Bytes read at once.
constexpr std::size_t PieceSize = std::size_t{256} * 1024;

// Bytes. A longer line would hardly arrive in one piece, and each piece becomes a line of its own.
constexpr std::size_t MaxLine = std::size_t{32} * 1024;

// What the service acts on at the border of a chunk: the first ends the file, and the second with
// the ten bytes after it is taken for the header of a buffer.
constexpr std::array Markers = {Token::Eof, BufferHeader::Token};

Failure Unreadable(std::string sentence) {
  return {.sentence = std::move(sentence), .unreadable = true};
}

// ---- Text

void CheckLine(std::string_view line, std::size_t number) {
  const auto refuse = [&](const std::string& why) {
    throw Failure{"line " + std::to_string(number) + " " + why + "; send it as binary"};
  };
  if (line.size() > MaxLine) refuse("is longer than " + std::to_string(MaxLine) + " bytes");
  if (line.starts_with(Token::Eof) || line.ends_with(Token::Eof)) {
    refuse("begins or ends with " + std::string(Token::Eof));
  }
}

// Checks each line and passes it on without its line end, with the number of bytes that it takes in
// the source.
void ForEachLine(const Source& source,
                 const std::function<void(std::string_view line, std::size_t bytes)>& take) {
  std::vector<char> piece(PieceSize);
  std::string pending;  // read, but not yet a complete line
  std::size_t number = 0;
  while (const std::size_t n = source.Read(piece.data(), piece.size())) {
    pending.append(piece.data(), n);
    std::string_view rest = pending;
    for (std::size_t lf = 0; (lf = rest.find('\n')) != rest.npos; rest.remove_prefix(lf + 1)) {
      std::string_view line = rest.substr(0, lf);
      if (line.ends_with('\r')) line.remove_suffix(1);
      CheckLine(line, ++number);
      take(line, lf + 1);
    }
    pending.erase(0, pending.size() - rest.size());
    if (pending.size() > MaxLine + 1) CheckLine(pending, number + 1);  // which refuses it
  }
  if (pending.empty()) return;
  CheckLine(pending, ++number);
  take(pending, pending.size());
}

// ---- Binary

// Announces a buffer of that many bytes.
std::string Header(std::size_t length) {
  const std::string digits = std::to_string(length);
  const std::string zeros(BufferHeader::Digits - digits.size(), '0');
  return std::string(BufferHeader::Token) + zeros + digits;
}

// How much of the content the next buffer holds: everything up to and including the "$" that the
// first marker begins with, so that no buffer holds a whole one: "ab$" of "ab$EOF$". A marker that
// the end of the content cuts off is split there anyway.
std::size_t PayloadLength(std::string_view content) {
  for (std::size_t at = 0; (at = content.find('$', at)) != content.npos;) {
    ++at;
    for (const std::string_view marker : Markers) {
      if (content.substr(at).starts_with(marker.substr(1))) return at;
    }
  }
  return content.size();
}

// Looks for markers in content that comes piece by piece.
class MarkerSearch {
 public:
  // Fails if a marker ends in this piece.
  void Take(std::string_view piece) {
    window_ += piece;
    for (const std::string_view marker : Markers) {
      if (window_.find(marker) == window_.npos) continue;
      throw Failure{"the content holds " + std::string(marker) + "; leave out --no-version"};
    }
    // As much as may begin a marker.
    window_.erase(0, window_.size() - std::min(window_.size(), BufferHeader::Token.size() - 1));
  }
  // Fails if the content's end and the end marker after it would make another marker, as with
  // "$EOF".
  void End() { Take(Token::Eof.substr(0, 1)); }

 private:
  std::string window_;
};

}  // namespace

// ---- Sources

std::size_t Source::Read(char* bytes, std::size_t limit) const {
  std::size_t length = 0;
  while (length < limit) {
    const ssize_t n = read(fd.Get(), bytes + length, limit - length);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw Unreadable("read error: " + LastError().message());
    if (n == 0) break;
    length += static_cast<std::size_t>(n);
  }
  return length;
}

void Source::Rewind() const {
  if (lseek(fd.Get(), start, SEEK_SET) < 0)
    throw Unreadable("read error: " + LastError().message());
}

Source OpenSource(const std::string& file) {
  Source source{Fd(file == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                               : open(file.c_str(), O_RDONLY | O_CLOEXEC)),
                std::nullopt};
  struct stat status;
  if (!source.fd || fstat(source.fd.Get(), &status) != 0) throw Unreadable(LastError().message());
  if (S_ISDIR(status.st_mode)) {
    throw Unreadable(std::make_error_code(std::errc::is_a_directory).message());
  }
  if (S_ISREG(status.st_mode)) {
    source.start = std::max<off_t>(0, lseek(source.fd.Get(), 0, SEEK_CUR));
    source.size = status.st_size - source.start;
  }
  return source;
}

Source Spool(const Source& source) {
  const auto fail = [] { throw Failure{"temporary file: " + LastError().message()}; };
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::tmpfile(), std::fclose);
  if (!file) fail();
  std::vector<char> piece(PieceSize);
  std::int64_t size = 0;
  while (const std::size_t n = source.Read(piece.data(), piece.size())) {
    if (std::fwrite(piece.data(), 1, n, file.get()) != n) fail();
    size += static_cast<std::int64_t>(n);
  }
  if (std::fseek(file.get(), 0, SEEK_SET) != 0) fail();  // writes it out
  Source spooled{Fd(fcntl(fileno(file.get()), F_DUPFD_CLOEXEC, 0)), size};
  if (!spooled.fd) fail();
  return spooled;
}

// ---- Checked before anything is sent

void CheckText(Source& source) {
  std::int64_t size = 0;
  ForEachLine(source, [&](std::string_view /*line*/, std::size_t bytes) {
    size += static_cast<std::int64_t>(bytes);
  });
  source.size = size;
  source.Rewind();
}

void CheckStream(Source& source) {
  MarkerSearch search;
  std::int64_t size = 0;
  std::vector<char> piece(PieceSize);
  while (const std::size_t n = source.Read(piece.data(), piece.size())) {
    search.Take({piece.data(), n});
    size += static_cast<std::int64_t>(n);
  }
  search.End();
  if (static_cast<std::uint64_t>(size) >
      BufferHeader::MaxLength - BufferHeader::Size - Token::Eof.size()) {
    throw Failure{"too long a stream; leave out --no-version"};
  }
  source.size = size;
  source.Rewind();
}

// ---- Sent

void SendText(ServiceConnection& service, const Source& source, ProgressBar& progress) {
  ForEachLine(source, [&](std::string_view line, std::size_t bytes) {
    service.Ask(line.empty() ? " " : line);  // an empty message can't be sent
    progress.Add(bytes);
  });
}

// A buffer may arrive in many chunks, cut anywhere by the network. None of them can begin or end
// with a marker of the content, since no buffer holds a complete one. The service answers once,
// when the last byte of the buffer is there.
void SendBuffers(ServiceConnection& service, const Source& source, std::size_t size,
                 ProgressBar& progress) {
  const std::size_t capacity = size - BufferHeader::Size;
  const auto space = std::make_unique_for_overwrite<char[]>(size);
  char* const content = space.get() + BufferHeader::Size;
  while (std::size_t left = source.Read(content, capacity)) {
    for (char* payload = content; left > 0;) {
      const std::size_t length = PayloadLength({payload, left});
      // The header goes directly in front, over what has been sent.
      char* const buffer = payload - BufferHeader::Size;
      std::ranges::copy(Header(BufferHeader::Size + length), buffer);
      service.Ask({buffer, BufferHeader::Size + length});
      progress.Add(length);
      payload += length;
      left -= length;
    }
  }
}

// Chunks begin and end where the network cuts them, and no reply shows how the service took them.
// So the content must hold no marker; it is searched again, since it may have changed meanwhile.
// One header announces everything that follows, the end marker included, so the count is right
// wherever the marker arrives.
void SendStream(ServiceConnection& service, const Source& source, ProgressBar& progress) {
  MarkerSearch search;
  const auto size = static_cast<std::size_t>(source.size.value_or(0));  // known since the search
  service.Send(Header(BufferHeader::Size + size + Token::Eof.size()));
  std::vector<char> piece(PieceSize);
  while (const std::size_t n = source.Read(piece.data(), piece.size())) {
    search.Take({piece.data(), n});
    service.Send({piece.data(), n});
    progress.Add(n);
  }
  search.End();
  service.Flush();  // or the marker might be split
}

}  // namespace quorbin
