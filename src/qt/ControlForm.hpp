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

// The control window on the screen: its controls, and how a text gets into them. It scrolls where
// the screen is too small for it.
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

  // Satz with these bytes behind it, which end a line; the view stays where it is.
  void AppendToSatz(std::string_view bytes);
  // Satz without its oldest lines, so that just those of these bytes are left.
  void KeepOfSatz(std::string_view bytes);

  // All fields empty and nothing ticked.
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
