#include "RegKeys.hpp"

#include <cstddef>
#include <optional>

namespace quorbin {

namespace {

constexpr std::size_t BufferSize = 1024;  // bytes; a longer value counts as missing

std::string DwordText(const std::string& bytes) {
  std::uint32_t number = 0;
  for (std::size_t i = bytes.size(); i-- > 0;) {
    number = number << 8U | static_cast<unsigned char>(bytes[i]);
  }
  return std::to_string(number);
}

}  // namespace

std::string ReadRegValue(Form1& form, std::uint32_t RootKey, const std::string& KeyPath,
                         const std::string& ValueName) {
  const std::optional<RegValue> value = form.Registry.QueryValue(RootKey, KeyPath, ValueName);
  if (!value || value->Bytes.size() > BufferSize) return {};
  switch (value->Type) {
    case RegType::REG_SZ:
    case RegType::REG_EXPAND_SZ:
      return value->Bytes.substr(0, value->Bytes.find('\0'));
    case RegType::REG_DWORD:
      return DwordText(value->Bytes.substr(0, sizeof(std::uint32_t)));
    default:
      return {};
  }
}

}  // namespace quorbin
