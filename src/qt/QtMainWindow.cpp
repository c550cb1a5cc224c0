#include "QtMainWindow.hpp"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QIcon>
#include <QMouseEvent>
#include <QPixmap>
#include <QScreen>
#include <QWindow>
#include <algorithm>
#include <cmath>
#include <utility>

#include "Controls.hpp"
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

QPushButton* MakeButton(QWidget& form, const char* name, const QString& caption, int leftTwips) {
  auto* button = new QPushButton(caption, &form);
  button->setFont(ArialFont(12));  // 9 pt
  button->setToolTip(caption);
  return Place(button, name, {leftTwips, 3120, 2295, 372});
}

}  // namespace

QtMainWindow::QtMainWindow(const Front::Events& events, EventLoop& loop)
    : events_(events),
      loop_(loop),
      Image2_(new QLabel(this)),
      Label1_(new QLabel(QStringLiteral("Quorbin"), this)),
      Label2_(new QLabel(this)) {
  setObjectName(QStringLiteral("Form1"));
  setFont(FormFont());
  setFixedSize(Pixels(5520), Pixels(3705));

  const QIcon logo(QStringLiteral(":/quorbin/logo.png"));  // finds the one for dense screens too
  Image2_->setPixmap(logo.pixmap(QSize(174, 62), qGuiApp->devicePixelRatio()));
  Image2_->setFrameStyle(QFrame::Box | QFrame::Sunken);
  Image2_->setAccessibleName(QStringLiteral("Logo"));
  Place(Image2_, "Image2", {810, 120, 2670, 990});

  Label1_->setFont(ArialFont(24));  // 18 pt
  Label1_->setAlignment(Qt::AlignCenter);
  Place(Label1_, "Label1", {1485, 1200, 1320, 435});

  Label2_->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
  Label2_->setWordWrap(true);
  Label2_->setTextFormat(Qt::PlainText);
  Place(Label2_, "Label2", {840, 1800, 2775, 855});

  // A press on a picture or a label does not count as one on the bare window.
  for (QWidget* control : {Image2_, Label1_, Label2_}) {
    control->setAttribute(Qt::WA_NoMousePropagation);
  }
  PlaceLine(*this, 5640, 2880);

  QPushButton* const command1 =
      MakeButton(*this, "Command1", QStringLiteral("Show Control Window"), 240);
  connect(command1, &QPushButton::clicked, [this] { events_.Command1Click(); });
  QPushButton* const commandParam =
      MakeButton(*this, "CommandParam", QStringLiteral("Show INI-File"), 3000);
  connect(commandParam, &QPushButton::clicked, [this] { events_.CommandParamClick(); });
}

void QtMainWindow::SetWindowState(FormState state) {
  if (state == state_) return;
  state_ = state;
  RaiseResize();
  // The handler may just have hidden the window: then there is nothing for the desktop to do.
  if (visible_ && appeared_) PutOnScreen();
}

void QtMainWindow::SetVisible(bool visible) {
  visible_ = visible;
  if (!appeared_) return;
  if (visible) {
    PutOnScreen();
  } else {
    // A window manager may move a hidden window by the width of the frame that it takes off.
    if (isVisible()) place_ = geometry().topLeft();
    hide();
  }
}

void QtMainWindow::Appear() {
  appeared_ = true;
  if (visible_) PutOnScreen();
}

void QtMainWindow::PutOnScreen() {
  Qt::WindowStates states = windowState();
  states.setFlag(Qt::WindowMinimized, state_ == FormState::Minimised);
  setWindowState(states);
  if (!isVisible() && place_) ReturnTo(*place_);
  show();
}

// Left to itself, the window manager would choose a place at each show.
void QtMainWindow::ReturnTo(QPoint place) {
  if (QGuiApplication::screenAt(place + rect().center()) == nullptr) {  // that screen has gone
    place = QGuiApplication::primaryScreen()->availableGeometry().center() - rect().center();
  }
  setGeometry(QRect(place, size()));
  windowHandle()->setPosition(place);  // the widget does not pass on a place that it has already
}

void QtMainWindow::BringToUser() {
  raise();
  activateWindow();
}

void QtMainWindow::SetCaption(const std::string& caption) { setWindowTitle(ToText(caption)); }

void QtMainWindow::SetLabel2(const std::string& caption) {
  Label2_->setText(ToText(caption).remove(u'\r'));
  // A notice wider than its place gets more of it on both sides.
  const QRect place = Label2_->geometry();
  const QSize needed =
      Label2_->fontMetrics().boundingRect(QRect(), Qt::AlignHCenter, Label2_->text()).size();
  const int wide = std::min(std::max(place.width(), needed.width()), width());
  Label2_->setGeometry(place.center().x() - (wide - 1) / 2, place.top(), wide,
                       std::max(place.height(), Label2_->heightForWidth(wide)));
}

double QtMainWindow::OuterWidth() const { return frameGeometry().width() * TwipsPerPixel; }

double QtMainWindow::ControlWidth(FormControl control) const {
  return Control(control).width() * TwipsPerPixel;
}

void QtMainWindow::SetLeft(FormControl control, double left) {
  QLabel& label = Control(control);
  label.move(static_cast<int>(std::lround(left / TwipsPerPixel)), label.y());
}

void QtMainWindow::Close() {
  if (closed_) return;
  closed_ = true;
  if (events_.QueryUnload) events_.QueryUnload();
  hide();
  loop_.Quit();
  QCoreApplication::exit(0);
}

QLabel& QtMainWindow::Control(FormControl control) const {
  switch (control) {
    case FormControl::Image2:
      return *Image2_;
    case FormControl::Label1:
      return *Label1_;
    case FormControl::Label2:
      break;
  }
  return *Label2_;
}

void QtMainWindow::RaiseResize() {
  if (events_.Resize) events_.Resize();
}

void QtMainWindow::mousePressEvent(QMouseEvent* event) {
  events_.MouseDown(ButtonNumber(event->button()), ShiftMask(event->modifiers()));
}

void QtMainWindow::resizeEvent(QResizeEvent* /*event*/) { RaiseResize(); }

// The change may be the desktop's or ours.
void QtMainWindow::changeEvent(QEvent* event) {
  if (event->type() == QEvent::WindowStateChange) {
    state_ = isMinimized() ? FormState::Minimised : FormState::Normal;
    RaiseResize();
  }
  QWidget::changeEvent(event);
}

void QtMainWindow::closeEvent(QCloseEvent* event) {
  Close();
  event->accept();
}

}  // namespace quorbin
