#pragma once

// An error of a connection, as the log shows it and as the journal has it.

#include <string>

#include "Form1.hpp"

namespace quorbin {

// An error as the journal has it.
std::string ErrorText(int Number, const std::string& Description);

// Appends "Error: " with number and text to the log, at every LogLevel, and keeps both for the
// connection's entry in the journal.
void LogError(Form1& form, int Number, const std::string& Description);

}  // namespace quorbin
