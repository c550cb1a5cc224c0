#include "Configuration.hpp"

#include <charconv>
#include <cmath>
#include <limits>

#include "Allgemein.hpp"
#include "Protocol.hpp"
#include "RegKeys.hpp"
#include "Text.hpp"
#include "Words.hpp"

namespace quorbin {

namespace {

double NumberFromDigits(std::string_view digits, double base) {
  constexpr std::string_view known = "0123456789abcdef";
  double number = 0;
  for (const char c : LCase(digits)) {
    const std::size_t digit = known.find(c);
    if (digit == known.npos || static_cast<double>(digit) >= base) break;
    number = number * base + static_cast<double>(digit);
  }
  return number;
}

}  // namespace

double NumberFromText(std::string_view text) {
  std::string packed;
  for (const char c : text) {
    if (c != ' ' && c != '\t' && c != '\n') packed += c;
  }
  std::string_view rest = packed;
  if (rest.starts_with("&h") || rest.starts_with("&H")) return NumberFromDigits(rest.substr(2), 16);
  if (rest.starts_with("&o") || rest.starts_with("&O")) return NumberFromDigits(rest.substr(2), 8);

  const bool negative = rest.starts_with('-');
  if (negative || rest.starts_with('+')) rest.remove_prefix(1);
  // What from_chars accepts besides digits: a second sign and the names of the infinite values.
  if (rest.find_first_of("0123456789.") != 0) return 0;
  double number = 0;  // stays if there is no number, or one beyond the range of a double
  std::from_chars(rest.data(), rest.data() + rest.size(), number);
  return negative ? -number : number;
}

template <std::signed_integral Int>
Int WholeNumberFromText(std::string_view text) {
  const double number = std::nearbyint(NumberFromText(text));
  if (number < std::numeric_limits<Int>::min() || number > std::numeric_limits<Int>::max()) {
    return 0;
  }
  return static_cast<Int>(number);
}
template std::int16_t WholeNumberFromText<std::int16_t>(std::string_view text);
template std::int32_t WholeNumberFromText<std::int32_t>(std::string_view text);

std::string SettingsPath(const Form1& form) {
  return form.App.AppPath() + PathSeparator + "quorbin.ini";
}

std::string ReadSetting(Form1& form, std::string_view section, std::string_view key,
                        std::string_view defaultText, std::size_t capacity) {
  form.ProfileBuf.assign(capacity, ' ');
  const std::uint32_t count = form.Profile.GetPrivateProfileString(
      section, key, defaultText, form.ProfileBuf, SettingsPath(form));
  return form.ProfileBuf.substr(0, count);
}

std::string ReadDefault(Form1& form, std::string_view section, std::string_view builtIn,
                        std::size_t capacity) {
  const std::string text = ReadSetting(form, section, Key::Default, builtIn, capacity);
  std::string_view keyword = Trim(text);
  if (section == Section::Extensions && keyword == Keyword::Allow) keyword = Keyword::Reg;
  const std::string_view opening = section == Section::Hosts ? Keyword::Allow : Keyword::Reg;
  return std::string(keyword == Keyword::Deny || keyword == opening ? keyword : builtIn);
}

void ReadModes(Form1& form) {
  form.ControlMode = ReadNumber<std::int16_t>(form, Section::Global, Key::Control);
  form.IconMode = ReadNumber<std::int16_t>(form, Section::Global, Key::Icon);
  form.ExtMode = ReadNumber<std::int16_t>(form, Section::Extensions, Key::ExtAllow);
  form.HostMode = ReadNumber<std::int16_t>(form, Section::Hosts, Key::HostAllow);
  if (form.ControlMode == 1) form.HostMode = HostModeLink;
}

void SetDirectories(Form1& form) {
  TransferSession& session = form.Session;
  session.TempDir = form.App.Environ("TMP");
  session.SystemRootDir = form.App.Environ("SystemRoot");
  if (session.TempDir.empty()) session.TempDir = form.App.Environ("TEMP");
  if (session.TempDir.empty()) session.TempDir = form.App.AppPath();
}

void SetListeningPort(Form1& form) {
  form.Winsock1.SetLocalPort(ReadNumber<std::int32_t>(form, Section::Global, Key::Port));
  if (form.Winsock1.LocalPort() != 0) return;
  std::string text = ReadRegValue(form, HKEY_CLASSES_ROOT, "Quorbin", "Port");
  if (text.empty()) text = std::to_string(DefaultPort);
  form.Winsock1.SetLocalPort(WholeNumberFromText<std::int32_t>(text));
}

void SetNamePrefix(Form1& form) {
  std::string prefix = ReadSetting(form, Section::Global, Key::Prefix, "f$~.", LongValue);
  // An empty one becomes "/.", which every hidden file of the directory begins with.
  if (prefix.starts_with('\\')) prefix.front() = PathSeparator;
  if (!prefix.starts_with(PathSeparator)) prefix.insert(0, 1, PathSeparator);
  if (!prefix.ends_with('.')) prefix += '.';
  form.Session.NamePrefix = std::move(prefix);
}

std::string SetListenAndParameters(Form1& form) {
  const auto read = [&form](std::string_view key) {
    return ReadSetting(form, Section::Global, key, "", LongValue);
  };
  const auto wrong = [&form](std::string_view key, const std::string& value) {
    return "Wrong value in the section Global of " + SettingsPath(form) + ": " + std::string(key) +
           "=" + value;
  };
  form.ListenAddress = read(Key::Listen);
  if (!form.Winsock1.SetLocalAddress(form.ListenAddress)) {
    return wrong(Key::Listen, form.ListenAddress);
  }
  const std::int32_t port = form.Winsock1.LocalPort();
  if (form.ListenAddress != LocalPeer && (port < 0 || port > LastPort)) {
    const std::string range = " (0 to " + std::to_string(LastPort) + ")";
    if (ReadNumber<std::int32_t>(form, Section::Global, Key::Port) == 0) {
      return "Wrong value Port of the key Quorbin in the registry: " + std::to_string(port) + range;
    }
    return wrong(Key::Port, std::to_string(port) + range);
  }
  const std::string parameters = read(Key::Parameters);
  form.ParametersAllowed = parameters != Keyword::Deny;
  if (!parameters.empty() && parameters != Keyword::Allow && parameters != Keyword::Deny) {
    return wrong(Key::Parameters, parameters);
  }
  return {};
}

}  // namespace quorbin
