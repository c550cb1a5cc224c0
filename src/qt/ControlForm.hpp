#pragma once

#include <QCheckBox>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QScrollArea>
#include <array>
#include <functional>
#include <string_view>

#include "StatusDisplay.hpp"

namespace quorbin {

// The control window on the screen: its controls, and the ways to show a text in them. It scrolls
// if the screen is too small for it.
class ControlForm final : public QScrollArea {
 public:
  struct Actions {
    std::function<void(bool ticked)> CheckLogClick;
    std::function<void()> Closed;  // by the user or by close
  };

  explicit ControlForm(Actions actions);

  // As large as its controls need, and no larger than the screen.
  QSize sizeHint() const override;

  // The field shows this text and nothing else: all of it in Satz, at most 32767 characters in any
  // other field.
  void SetText(Field field, std::string_view text);

  // Appends these bytes, which end a line, to Satz; the view does not move.
  void AppendToSatz(std::string_view bytes);
  // Drops the oldest lines of Satz, so that only the lines of these bytes are left.
  void KeepOfSatz(std::string_view bytes);

  // Empties all fields and unticks the box.
  void Clear();

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  QLineEdit* line_[FieldNames.size()] = {};        // a field is either of one line
  QPlainTextEdit* lines_[FieldNames.size()] = {};  // or of several
  QCheckBox* checkLog_ = nullptr;
  Actions actions_;
};

}  // namespace quorbin
