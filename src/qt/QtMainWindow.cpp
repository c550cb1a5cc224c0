#include "QtMainWindow.hpp"

#include <QGuiApplication>
#include <QMouseEvent>
#include <algorithm>
#include <cmath>

#include "WindowText.hpp"

namespace quorbin {

namespace {

// The numbers of buttons and keys that the program's handlers know.
std::int16_t ButtonNumber(Qt::MouseButton button) {
  switch (button) {
    case Qt::LeftButton:
      return 1;
    case Qt::RightButton:
      return 2;
    case Qt::MiddleButton:
      return 4;
    default:
      return 0;
  }
}

std::int16_t ShiftMask(Qt::KeyboardModifiers keys) {
  return static_cast<std::int16_t>((keys.testFlag(Qt::ShiftModifier) ? 1 : 0) |
                                   (keys.testFlag(Qt::ControlModifier) ? 2 : 0) |
                                   (keys.testFlag(Qt::AltModifier) ? 4 : 0));
}

}  // namespace

QtMainWindow::QtMainWindow(const WindowEvents& events, EventLoop& loop)
    : events_(events),
      loop_(loop),
      form_({.Pressed = [this](QMouseEvent& event) { RaiseMouseDown(event); },
             .Resized = [this] { RaiseResize(); },
             .StateChanged =
                 [this](bool minimised) {
                   state_ = minimised ? FormState::Minimised : FormState::Normal;
                   RaiseResize();
                 },
             .Closed = [this] { Close(); }}) {
  QObject::connect(form_.Command1, &QPushButton::clicked, [this] { events_.Command1Click(); });
  QObject::connect(form_.CommandParam, &QPushButton::clicked,
                   [this] { events_.CommandParamClick(); });
}

void QtMainWindow::SetWindowState(FormState state) {
  if (state == state_) return;
  state_ = state;
  RaiseResize();
  // The handler may just have hidden the window: then there is nothing for the desktop to do.
  if (visible_ && appeared_) Show();
}

void QtMainWindow::SetVisible(bool visible) {
  visible_ = visible;
  if (!appeared_) return;
  if (visible) {
    Show();
  } else {
    form_.hide();
  }
}

void QtMainWindow::Appear() {
  appeared_ = true;
  if (visible_) Show();
}

void QtMainWindow::Show() {
  Qt::WindowStates states = form_.windowState();
  states.setFlag(Qt::WindowMinimized, state_ == FormState::Minimised);
  form_.setWindowState(states);
  form_.show();
}

void QtMainWindow::BringToUser() {
  form_.raise();
  form_.activateWindow();
}

WindowHandle QtMainWindow::Handle() const { return reinterpret_cast<WindowHandle>(&form_); }

WindowHandle QtMainWindow::Icon() const {
  return static_cast<WindowHandle>(QGuiApplication::windowIcon().cacheKey());
}

void QtMainWindow::SetCaption(const std::string& caption) { form_.setWindowTitle(ToText(caption)); }

void QtMainWindow::SetLabel2(const std::string& caption) {
  QLabel& label = *form_.Label2;
  label.setText(ToText(caption).remove(u'\r'));
  // A notice wider than its place gets more of it on both sides.
  const QRect place = label.geometry();
  const QSize needed =
      label.fontMetrics().boundingRect(QRect(), Qt::AlignHCenter, label.text()).size();
  const int width = std::min(std::max(place.width(), needed.width()), form_.width());
  label.setGeometry(place.center().x() - (width - 1) / 2, place.top(), width,
                    std::max(place.height(), label.heightForWidth(width)));
}

double QtMainWindow::OuterWidth() const { return form_.frameGeometry().width() * TwipsPerPixel; }

double QtMainWindow::ControlWidth(FormControl control) const {
  return Control(control).width() * TwipsPerPixel;
}

void QtMainWindow::SetLeft(FormControl control, double left) {
  QLabel& label = Control(control);
  label.move(static_cast<int>(std::lround(left / TwipsPerPixel)), label.y());
}

void QtMainWindow::SetStopsrvCaption(const std::string& caption) {
  stopsrv_ = caption;
  form_.stopsrv->setText(ToText(caption));
}

void QtMainWindow::Close() {
  if (closed_) return;
  closed_ = true;
  if (events_.QueryUnload) events_.QueryUnload();
  form_.hide();
  loop_.Quit();
}

QLabel& QtMainWindow::Control(FormControl control) const {
  switch (control) {
    case FormControl::Image2:
      return *form_.Image2;
    case FormControl::Label1:
      return *form_.Label1;
    case FormControl::Label2:
      break;
  }
  return *form_.Label2;
}

void QtMainWindow::RaiseMouseDown(QMouseEvent& event) {
  events_.MouseDown(ButtonNumber(event.button()), ShiftMask(event.modifiers()));
}

void QtMainWindow::RaiseResize() {
  if (events_.Resize) events_.Resize();
}

}  // namespace quorbin
