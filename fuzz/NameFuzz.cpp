// A sender's name: reduced, and shown on a terminal.

#include <glib.h>

#include "Printable.hpp"
#include "RemoteName.hpp"
#include "Require.hpp"

using namespace quorbin;

namespace {

// The bytes that were shown: no two texts may look alike.
std::string Unprinted(std::string_view shown) {
  std::string bytes;
  for (std::size_t i = 0; i < shown.size(); ++i) {
    if (shown[i] != '\\') {
      bytes += shown[i];
      continue;
    }
    constexpr std::string_view letters = "rnt\\";
    constexpr std::string_view meant = "\r\n\t\\";
    const char c = shown.at(++i);
    if (c == 'x') {
      bytes += static_cast<char>(std::stoi(std::string(shown.substr(i + 1, 2)), nullptr, 16));
      i += 2;
    } else {
      bytes += meant.at(letters.find(c));
    }
  }
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view sent = fuzz::Input(data, size);
  const std::string name = ReduceName(sent);
  fuzz::Require(sent.find(name) != sent.npos, "within what was sent", sent);
  fuzz::Require(!name.ends_with(' '), "no blank at the end", sent);
  fuzz::Require(!sent.starts_with('/') || sent.starts_with("/BS2/") || name.find('/') == name.npos,
                "a path loses its directories", sent);
  const std::string ext = DeriveExt(name);
  fuzz::Require(ext.size() <= 4 && name.ends_with(ext), "the end of the name", sent);

  const std::string shown = Printable(sent);
  fuzz::Require(g_utf8_validate(shown.data(), static_cast<gssize>(shown.size()), nullptr) != 0,
                "shown as valid UTF-8", sent);
  for (std::size_t i = 0; i < shown.size(); ++i) {
    const auto c = static_cast<unsigned char>(shown[i]);
    const bool control = c < 0x20 || c == 0x7F;
    const bool control8 = c == 0xC2 && static_cast<unsigned char>(shown[i + 1]) < 0xA0;
    fuzz::Require(!control && !control8, "steers no terminal", sent);
  }
  fuzz::Require(Unprinted(shown) == sent, "shown without loss", sent);
  return 0;
}
