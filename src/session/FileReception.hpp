#pragma once

#include <cstdint>

#include "Form1.hpp"

namespace quorbin {

// The data command: opens the output file and enters the data phase, or ends the connection if no
// viewer is known for the extension. A file that can't be opened moves to a generated name; if
// that fails as well, the error is logged and the connection ends.
void AcceptData(Form1& form);

// One chunk of the data phase: stores the content of RecvBuf, answers the sender, and at the end
// marker closes connection and file, starts the viewer and listens again. ChunkLen is the length
// as received. A failed write moves the transfer to a new file under a generated name, which
// holds what comes from this chunk on; a second failure is logged and ends the connection.
void ReceiveChunk(Form1& form, std::int64_t ChunkLen);

}  // namespace quorbin
