#pragma once

// Settings: the reads of quorbin.ini and what their values mean.

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Form1.hpp"

namespace quorbin {

// Sections and keys with a meaning of their own.
namespace Section {
inline constexpr std::string_view Global = "Global";
inline constexpr std::string_view Extensions = "Extensions";
inline constexpr std::string_view Hosts = "Hosts";
}  // namespace Section
namespace Key {
inline constexpr std::string_view Control = "Control";
inline constexpr std::string_view Icon = "Icon";
inline constexpr std::string_view Port = "Port";
inline constexpr std::string_view Prefix = "Prefix";
inline constexpr std::string_view Listen = "Listen";
inline constexpr std::string_view Parameters = "Parameters";
inline constexpr std::string_view ExtAllow = "ext_allow";
inline constexpr std::string_view HostAllow = "host_allow";
inline constexpr std::string_view Default = "Default";
}  // namespace Key

inline constexpr std::int32_t LastPort = 65535;

// Capacities of the read buffer, in bytes; the longest value has one less.
inline constexpr std::size_t ShortValue = 20;
inline constexpr std::size_t LongValue = 200;

// The number at the start of the text: sign, digits, fraction and exponent, or &h and &o with
// hexadecimal or octal digits; blanks, tabs and line feeds are ignored everywhere. 0 if there is
// none, or one too large for a double.
double NumberFromText(std::string_view text);

// That number rounded to the nearest whole one, a tie to the even neighbour; 0 if it does not fit
// the field.
template <std::signed_integral Int>
Int WholeNumberFromText(std::string_view text);

std::string SettingsPath(const Form1& form);

// One read of the settings file through ProfileBuf. The value is cut at capacity - 1 bytes;
// defaultText is the answer if file, section or key is missing.
std::string ReadSetting(Form1& form, std::string_view section, std::string_view key,
                        std::string_view defaultText, std::size_t capacity);

// A numeric setting; absent counts as 0.
template <std::signed_integral Int>
Int ReadNumber(Form1& form, std::string_view section, std::string_view key) {
  return WholeNumberFromText<Int>(ReadSetting(form, section, key, "0", ShortValue));
}

// The keyword of the key Default in a section: builtIn unless the file holds another one of the
// section's keywords, surrounding blanks ignored.
std::string ReadDefault(Form1& form, std::string_view section, std::string_view builtIn,
                        std::size_t capacity);

// Steps of start-up.
void ReadModes(Form1& form);         // Control, Icon, ext_allow, host_allow
void SetDirectories(Form1& form);    // TempDir and SystemRootDir
void SetListeningPort(Form1& form);  // from the settings, the registry or the built-in port
void SetNamePrefix(Form1& form);

// Listen and Parameters, which limit what peers can do. Returns an invalid value as "KEY=VALUE",
// since it must not be taken for the default; empty if both are valid.
std::string SetListenAndParameters(Form1& form);

}  // namespace quorbin
