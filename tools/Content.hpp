#pragma once

// The content of a file on its way to the service. All routines throw Failure.

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "Fd.hpp"
#include "ProgressBar.hpp"
#include "ServiceConnection.hpp"

namespace quorbin {

// A file to send, or standard input.
struct Source {
  Fd fd;
  std::optional<std::int64_t> size;  // bytes; nullopt for what can be read only once
  off_t start = 0;                   // standard input may have been partly read

  // Reads limit bytes unless the content ends before. Returns the number of bytes read.
  std::size_t Read(char* bytes, std::size_t limit) const;
  void Rewind() const;
};

// "-" is standard input.
Source OpenSource(const std::string& file);

// The same bytes from a file without a name, which can be read twice.
Source Spool(const Source& source);

// Reads the source, fails if SendText or SendStream would, sets the size to the bytes found, and
// rewinds.
void CheckText(Source& source);
void CheckStream(Source& source);

// Each line as a message. The service ends it with CR LF in the file.
void SendText(ServiceConnection& service, const Source& source, ProgressBar& progress);

// Binary content in acknowledged buffers of that many bytes at most, their header included.
void SendBuffers(ServiceConnection& service, const Source& source, std::size_t size,
                 ProgressBar& progress);

// Binary content without acknowledgement, as one stream. The size must be known.
void SendStream(ServiceConnection& service, const Source& source, ProgressBar& progress);

}  // namespace quorbin
