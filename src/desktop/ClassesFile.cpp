#include "ClassesFile.hpp"

#include "Text.hpp"

#include <glib.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <utility>

namespace quorbin {

namespace {

constexpr std::string_view Root = "HKEY_CLASSES_ROOT";
constexpr std::string_view WideHeader = "Windows Registry Editor Version 5.00";

std::string_view StripLine(std::string_view text) { return Trim(text, " \t\r"); }

// Takes the first line off the text, without its line end and the surrounding blanks.
std::string_view TakeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return StripLine(line);
}

bool TakePrefix(std::string_view& text, std::string_view prefix) {
  if (!EqualsNoCase(text.substr(0, prefix.size()), prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

// Takes a text in double quotes; \" and \\ in it are one character. A backslash before anything
// else is itself, so that paths written by hand keep theirs.
std::optional<std::string> TakeQuoted(std::string_view& text) {
  if (!text.starts_with('"')) return std::nullopt;
  std::string content;
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == '"') {
      text = StripLine(text.substr(i + 1));
      return content;
    }
    if (text[i] == '\\' && i + 1 < text.size() && (text[i + 1] == '"' || text[i + 1] == '\\')) ++i;
    content += text[i];
  }
  return std::nullopt;
}

// Takes the value's name and the equals sign; @ is the empty name.
std::optional<std::string> TakeName(std::string_view& line) {
  std::optional<std::string> name;
  if (line.starts_with('@')) {
    name.emplace();
    line = StripLine(line.substr(1));
  } else {
    name = TakeQuoted(line);
  }
  if (!line.starts_with('=')) return std::nullopt;
  line = StripLine(line.substr(1));
  return name;
}

std::optional<std::uint32_t> HexNumber(std::string_view digits) {
  std::uint32_t number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, number, 16);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

// The bytes of a list with commas. A backslash at its end continues it on the next line of rest,
// which stays there if it does not belong to the list.
std::optional<std::string> HexBytes(std::string_view list, std::string_view& rest) {
  std::string bytes;
  while (true) {
    const bool goesOn = list.ends_with('\\');
    if (goesOn) list = StripLine(list.substr(0, list.size() - 1));
    while (!list.empty()) {
      const std::size_t comma = list.find(',');
      const std::optional<std::uint32_t> byte = HexNumber(StripLine(list.substr(0, comma)));
      if (!byte || *byte > 0xFF) return std::nullopt;
      bytes += static_cast<char>(*byte);
      list.remove_prefix(comma == std::string_view::npos ? list.size() : comma + 1);
    }
    if (!goesOn) return bytes;
    std::string_view remaining = rest;
    list = TakeLine(remaining);
    if (list.empty() || !g_ascii_isxdigit(list.front())) return std::nullopt;
    rest = remaining;
  }
}

// UTF-8 of UTF-16 with the less significant byte first. Half a pair becomes U+FFFD, an odd last
// byte is dropped.
std::string FromUtf16(std::string_view bytes) {
  const auto unit = [bytes](std::size_t i) -> gunichar {
    if (i + 1 >= bytes.size()) return 0;
    return static_cast<unsigned char>(bytes[i]) | gunichar{static_cast<unsigned char>(bytes[i + 1])}
                                                      << 8U;
  };
  std::string text;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    gunichar c = unit(i);
    if (const gunichar low = unit(i + 2); c >> 10U == 0x36 && low >> 10U == 0x37) {
      c = 0x10000 + ((c & 0x3FFU) << 10U) + (low & 0x3FFU);
      i += 2;
    } else if (c >> 11U == 0x1B) {
      c = 0xFFFD;
    }
    char utf8[6];
    text.append(utf8, static_cast<std::size_t>(g_unichar_to_utf8(c, utf8)));
  }
  return text;
}

std::optional<RegValue> HexValue(std::string_view data, std::string_view& rest, bool wide) {
  RegType type = RegType::REG_BINARY;
  if (TakePrefix(data, "(")) {
    const std::size_t end = data.find(')');
    const std::optional<std::uint32_t> number = HexNumber(data.substr(0, end));
    if (!number || end == std::string_view::npos) return std::nullopt;
    type = static_cast<RegType>(*number);
    data.remove_prefix(end + 1);
  }
  if (!TakePrefix(data, ":")) return std::nullopt;
  std::optional<std::string> bytes = HexBytes(data, rest);
  if (!bytes) return std::nullopt;
  if (type == RegType::REG_SZ || type == RegType::REG_EXPAND_SZ) {
    if (wide) *bytes = FromUtf16(*bytes);
    if (!bytes->ends_with('\0')) *bytes += '\0';
  }
  return RegValue{type, std::move(*bytes)};
}

// The value after the equals sign. rest holds the lines below, some of which a long value takes.
std::optional<RegValue> ParseData(std::string_view data, std::string_view& rest, bool wide) {
  if (std::optional<std::string> text = TakeQuoted(data)) {
    if (!data.empty() && !data.starts_with(';')) return std::nullopt;
    return RegValue{RegType::REG_SZ, std::move(*text) + '\0'};
  }
  if (TakePrefix(data, "dword:")) {
    const std::optional<std::uint32_t> number = HexNumber(data);
    if (!number) return std::nullopt;
    std::string bytes;
    for (unsigned shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(*number >> shift);
    return RegValue{RegType::REG_DWORD, std::move(bytes)};
  }
  if (TakePrefix(data, "hex")) return HexValue(data, rest, wide);
  return std::nullopt;
}

}  // namespace

std::optional<RegValue> FindValue(std::string_view fileBytes, std::string_view keyPath,
                                  std::string_view valueName) {
  std::string converted;
  std::string_view rest = fileBytes;
  if (rest.starts_with("\xFF\xFE")) {
    converted = FromUtf16(rest.substr(2));
    rest = converted;
  } else if (rest.starts_with("\xEF\xBB\xBF")) {
    rest.remove_prefix(3);
  }

  bool wide = false;   // texts written as hex bytes have two bytes per character
  bool inKey = false;  // the lines belong to the key asked for
  std::optional<RegValue> found;
  while (!rest.empty()) {
    std::string_view line = TakeLine(rest);
    if (TakePrefix(line, "[")) {
      const std::size_t end = line.rfind(']');
      std::string_view key = line.substr(0, end);
      inKey = end != std::string_view::npos && TakePrefix(key, Root) && TakePrefix(key, "\\") &&
              EqualsNoCase(key, keyPath);
    } else if (EqualsNoCase(line, WideHeader)) {
      wide = true;
    } else if (inKey) {
      const std::optional<std::string> name = TakeName(line);
      if (!name || !EqualsNoCase(*name, valueName)) continue;
      if (std::optional<RegValue> value = ParseData(line, rest, wide)) found = std::move(value);
    }
  }
  return found;
}

}  // namespace quorbin
