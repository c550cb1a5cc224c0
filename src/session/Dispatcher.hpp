#pragma once

#include "Form1.hpp"

namespace quorbin {

// Executes the control message in RecvBuf, from which it first removes a closing NAK and blanks at
// the end.
void Dispatch(Form1& form);

}  // namespace quorbin
