#include "ErrorLog.hpp"

#include "Allgemein.hpp"
#include "Words.hpp"

namespace quorbin {

std::string ErrorText(int Number, const std::string& Description) {
  return std::to_string(Number) + " " + Description;
}

void LogError(Form1& form, int Number, const std::string& Description) {
  form.FControl.AppendLine(std::string(LogLine::Error) + NumberText(Number) + " " + Description);
  form.Session.LastError = ErrorText(Number, Description);
}

}  // namespace quorbin
