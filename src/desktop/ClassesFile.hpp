#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "RegistryReader.hpp"

namespace quorbin {

// One value below HKEY_CLASSES_ROOT, from the bytes of a registry export (classes.reg); an empty
// valueName names the key's default value. Of repeated values the last well-formed one counts, as
// in an import. nullopt if there is none. Texts are the file's bytes, or UTF-8 if the file is
// UTF-16. Takes time linear in the file's length.
std::optional<RegValue> FindValue(std::string_view fileBytes, std::string_view keyPath,
                                  std::string_view valueName);

}  // namespace quorbin
