#pragma once

// What the two windows do on the user's actions.

#include <cstdint>

#include "Form1.hpp"

namespace quorbin {

void Command1_Click(Form1& form);      // shows the control window
void CommandParam_Click(Form1& form);  // opens the settings file in an editor
void CheckLog_Click(Form1& form, bool ticked);

// A press on the bare main window, not on a control. Button: 1 left, 2 right, 4 middle. Shift: 1
// Shift, 2 Ctrl, 4 Alt, added up. Ctrl and the left button show the control window.
void Form_MouseDown(Form1& form, std::int16_t Button, std::int16_t Shift);

// The main window changed its size or state.
void Form_Resize(Form1& form);

}  // namespace quorbin
