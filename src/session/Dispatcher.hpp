#pragma once

#include "Form1.hpp"

namespace quorbin {

// Carries out the control message in RecvBuf, which is left without what does not belong to it.
void Dispatch(Form1& form);

}  // namespace quorbin
