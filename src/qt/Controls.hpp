#pragma once

// What the controls of both windows have in common.

#include <QFont>
#include <QFontMetrics>
#include <QFrame>
#include <QPlainTextEdit>
#include <QWidget>

#include "WindowText.hpp"

namespace quorbin {

// Where a control is in its window, in twips.
struct Box {
  int Left;
  int Top;
  int Width;
  int Height;
};

// Fonts have their size in pixels, as the places have: one scale for all of a window.
inline QFont SizedFont(QFont font, int pixels, bool bold) {
  font.setPixelSize(pixels);
  font.setBold(bold);
  return font;
}
inline QFont FormFont() { return SizedFont(QFont(), 11, false); }  // 8.25 pt
inline QFont ArialFont(int pixels) {
  return SizedFont(QFont(QStringLiteral("Arial")), pixels, true);
}

// The size that a control needs to show its text uncut; for several lines, that of one line.
inline QSize NeededSize(const QWidget& control) { return control.minimumSizeHint(); }
inline QSize NeededSize(const QPlainTextEdit& control) {
  const int margins = 2 * static_cast<int>(control.document()->documentMargin()) + 2;
  return {0, control.fontMetrics().height() + margins};
}

// Names and places the control, and enlarges it to the size that it needs.
template <class Control>
Control* Place(Control* control, const char* name, const Box& box) {
  control->setObjectName(QString::fromLatin1(name));
  const QSize designed(Pixels(box.Width), Pixels(box.Height));
  control->move(Pixels(box.Left), Pixels(box.Top));
  control->resize(designed.expandedTo(NeededSize(*control)));
  return control;
}

// Line1: a horizontal line from the left edge. A press on it is one on the window.
inline void PlaceLine(QWidget& form, int widthTwips, int topTwips) {
  auto* line = new QFrame(&form);
  line->setFrameStyle(QFrame::HLine | QFrame::Sunken);
  line->setObjectName(QStringLiteral("Line1"));
  line->setGeometry(0, Pixels(topTwips), Pixels(widthTwips), line->frameWidth() + 1);
  line->setAttribute(Qt::WA_TransparentForMouseEvents);
}

}  // namespace quorbin
