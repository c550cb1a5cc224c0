// Numbers out of settings values.

#include <cmath>

#include "Configuration.hpp"
#include "Require.hpp"

using namespace quorbin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::Input(data, size);
  const double number = NumberFromText(text);
  fuzz::Require(!std::isnan(number), "is a number", text);
  fuzz::Require(NumberFromText("\t " + std::string(text) + "\n") == number, "blanks don't count",
                text);
  const auto narrow = WholeNumberFromText<std::int16_t>(text);
  const auto wide = WholeNumberFromText<std::int32_t>(text);
  fuzz::Require(narrow == 0 || narrow == wide, "one number for every width", text);
  fuzz::Require(std::abs(number) > 2147483648.0 || wide == 0 || std::abs(number - wide) <= 0.5,
                "the nearest whole number", text);
  fuzz::Require(std::abs(number) < 32767 == (narrow != 0 || std::abs(number) <= 0.5) ||
                    std::abs(number) >= 32767,
                "0 only for what doesn't fit", text);
  return 0;
}
