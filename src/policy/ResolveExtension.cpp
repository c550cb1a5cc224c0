#include "ResolveExtension.hpp"

#include "Configuration.hpp"
#include "RegKeys.hpp"
#include "Text.hpp"
#include "Words.hpp"

namespace quorbin {

namespace {

// Opens a received program where the registry knows no class for it. Upper case only.
constexpr std::string_view ProgramExt = ".EXE";
constexpr std::string_view ProgramCommand = "\"%1\" %*";

bool Fail(Form1& form, std::string_view message) {
  form.FControl.Write(Field::resu, message);
  form.FControl.Write(Field::kdo, "");
  form.FControl.Write(Field::aktion, Aktion::ExtRefused);
  return false;
}

std::string RegisteredCommand(Form1& form, const std::string& Ext) {
  const std::string className = ReadRegValue(form, HKEY_CLASSES_ROOT, Ext, "");
  if (className.empty()) return std::string(Ext == ProgramExt ? ProgramCommand : "");
  return ReadRegValue(form, HKEY_CLASSES_ROOT, className + "\\shell\\open\\command", "");
}

}  // namespace

bool ResolveExtension(Form1& form, const std::string& Ext, std::string& ViewerCmd) {
  if (!Ext.starts_with('.')) return Fail(form, Resu::WrongExtension);

  form.ExtMode = ReadNumber<std::int16_t>(form, Section::Extensions, Key::ExtAllow);
  const std::string_view builtIn = form.ExtMode == DenyByDefault ? Keyword::Deny : Keyword::Reg;
  const std::string extDefault = ReadDefault(form, Section::Extensions, builtIn, ShortValue);
  ViewerCmd = ReadSetting(form, Section::Extensions, LCase(Ext.substr(1)), extDefault, LongValue);

  if (ViewerCmd == Keyword::Deny) {
    ViewerCmd.clear();
    return Fail(form, Resu::ExtensionDenied);
  }
  if (ViewerCmd != Keyword::Reg) return true;
  ViewerCmd = RegisteredCommand(form, Ext);
  return !ViewerCmd.empty() || Fail(form, Resu::WrongExtension);
}

}  // namespace quorbin
