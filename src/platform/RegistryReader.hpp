#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "PlatformInterface.hpp"

namespace quorbin {

// Root of the file associations, the only one the program asks.
inline constexpr std::uint32_t HKEY_CLASSES_ROOT = 0x80000000U;

// The value types that give text. Any other number is a value that is there but unreadable.
enum class RegType : std::uint32_t { REG_SZ = 1, REG_EXPAND_SZ = 2, REG_BINARY = 3, REG_DWORD = 4 };

struct RegValue {
  RegType Type = RegType::REG_SZ;
  // As a registry stores it: texts with their closing zero byte, a number as four bytes with the
  // least significant first.
  std::string Bytes;
};

class RegistryReader : public PlatformInterface {
 public:
  // One value; an empty ValueName names the key's default value. nullopt if key or value is missing
  // or can't be read. Key path and value name match without regard to letter case.
  virtual std::optional<RegValue> QueryValue(std::uint32_t RootKey, const std::string& KeyPath,
                                             const std::string& ValueName) = 0;
};

}  // namespace quorbin
