#pragma once

// Converts the program's bytes to what the windows show.

#include <QIcon>
#include <QString>
#include <string_view>

namespace quorbin {

// Pixels of a length in twips: 96 pixels, or 1440 twips, to the inch. The toolkit scales pixels on
// dense screens.
inline constexpr int TwipsPerPixel = 15;
constexpr int Pixels(int twips) { return (twips + TwipsPerPixel / 2) / TwipsPerPixel; }

// Valid UTF-8 as such, anything else byte by byte as Latin-1, with a visible sign for each
// character that could steer what is shown.
QString ToText(std::string_view bytes);

// Lines closed by CR LF, each converted on its own, as lines closed by LF; there is no other break
// in the result. A line breaks at its own line ends as well, and after each 4096 characters, so
// that no line costs the window much to lay out.
QString ToLog(std::string_view bytes);

// One of the program's icons, in all its sizes.
QIcon ProgramIcon(const QString& name);

}  // namespace quorbin
