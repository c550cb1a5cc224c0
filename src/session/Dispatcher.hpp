#pragma once

#include "Form1.hpp"

namespace quorbin {

// Executes the control message in RecvBuf, and leaves there the message without a closing NAK and
// blanks.
void Dispatch(Form1& form);

}  // namespace quorbin
