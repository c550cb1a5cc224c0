#include "QtStatusDisplay.hpp"

#include <algorithm>

namespace quorbin {

namespace {
constexpr int RefreshMilliseconds = 33;
}

QtStatusDisplay::QtStatusDisplay(const Front::Events& events) : events_(events) {
  refresh_.setSingleShot(true);
  refresh_.setInterval(RefreshMilliseconds);
  QObject::connect(&refresh_, &QTimer::timeout, [this] { Refresh(); });
}

void QtStatusDisplay::Write(Field field, std::string_view text) {
  texts_.Write(field, text);
  if (field == Field::Satz) satzRewritten_ = true;
  Changed(field);
}

void QtStatusDisplay::AppendLine(std::string_view line) {
  const std::size_t dropped = texts_.AppendLine(line);
  if (dropped > 0) {
    satzShown_ -= std::min(satzShown_, dropped);
    satzDropped_ = true;
  }
  Changed(Field::Satz);
}

void QtStatusDisplay::Changed(Field field) {
  changed_[IndexOf(field)] = true;
  if (OnScreen() && !refresh_.isActive()) refresh_.start();
}

void QtStatusDisplay::Refresh() {
  if (!OnScreen()) return;
  for (std::size_t i = 0; i < changed_.size(); ++i) {
    if (!changed_[i]) continue;
    changed_[i] = false;
    const auto field = static_cast<Field>(i);
    if (field == Field::Satz) {
      RefreshSatz();
    } else {
      form_->SetText(field, texts_.Text(field));
    }
  }
}

void QtStatusDisplay::RefreshSatz() {
  const std::string_view held = texts_.Text(Field::Satz);
  if (satzRewritten_) {
    form_->SetText(Field::Satz, held);
  } else {
    if (satzDropped_) form_->KeepOfSatz(held.substr(0, satzShown_));
    form_->AppendToSatz(held.substr(satzShown_));
  }
  satzRewritten_ = false;
  satzDropped_ = false;
  satzShown_ = held.size();
}

void QtStatusDisplay::Show() {
  if (!form_) {
    form_ = std::make_unique<ControlForm>(ControlForm::Actions{
        .CheckLogClick = [this](bool ticked) { events_.CheckLogClick(ticked); },
        .Closed = [this] { Forget(); }});
  }
  form_->setWindowState(form_->windowState() & ~Qt::WindowMinimized);
  form_->show();
  form_->raise();
  form_->activateWindow();
  Refresh();
}

void QtStatusDisplay::CloseWindow() {
  if (form_) form_->close();
}

// The window is closed and its texts are gone. The next write finds all fields empty.
void QtStatusDisplay::Forget() {
  texts_ = FieldTexts();
  form_->Clear();
  changed_ = {};
  satzRewritten_ = false;
  satzDropped_ = false;
  satzShown_ = 0;
}

}  // namespace quorbin
