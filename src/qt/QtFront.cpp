#include "QtFront.hpp"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QMessageBox>
#include <QSessionManager>
#include <QSocketNotifier>
#include <QThread>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>

#include "DisplayProbe.hpp"
#include "QtMainWindow.hpp"
#include "QtStatusDisplay.hpp"
#include "QtTray.hpp"
#include "Report.hpp"
#include "WindowText.hpp"

// Registers the resources of this static library. The macro must be outside any namespace.
static void InitResources() { Q_INIT_RESOURCE(quorbin); }

namespace quorbin {

namespace {

// The toolkit keeps references to both.
int argumentCount = 1;
char programName[] = "Quorbin";
char* arguments[] = {programName, nullptr};

// For the loss of the display, which the toolkit reports only by the end of the process.
QtMainWindow* openWindow = nullptr;
QtMessageHandler printMessage = nullptr;

// Events that are already waiting are handled in one turn of the toolkit's loop, for this long at
// most; then the windows have their turn. To wait here for the next event, which a peer that waits
// for each reply sends within a millisecond, would save at most a fortieth of the time of a text
// line.
constexpr std::int64_t TurnMilliseconds = 10;

constexpr unsigned long LongestCloseSeconds = 10;

std::string NamedDisplay() {
  for (const char* name : {"WAYLAND_DISPLAY", "DISPLAY"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && *value != '\0') return value;
  }
  return {};
}

// Where the display or the session manager goes away, as at the end of a session, the toolkit calls
// exit. That is a close of the main window like any other.
void CloseWithSession() {
  QtMainWindow* const window = std::exchange(openWindow, nullptr);
  if (window == nullptr) return;
  window->Close();
  std::_Exit(EXIT_SUCCESS);
}

// Where the compositor goes away, each of the toolkit's threads says so and calls _exit. Those
// other than ours wait for the end that ours makes; it makes none if it has left the toolkit's
// loop. While a last message is on the screen that is its end as well.
void HearLastWords(QtMsgType type, const QMessageLogContext& context, const QString& text) {
  printMessage(type, context, text);
  if (!text.startsWith(u"The Wayland connection ")) return;
  if (QThread::currentThread() != qApp->thread()) {
    QThread::sleep(LongestCloseSeconds);
    return;
  }
  CloseWithSession();
  std::_Exit(EXIT_FAILURE);
}

// A session that is restored must not start a second instance: the autostart entry starts the
// first.
void NeverRestart(QSessionManager& manager) {
  manager.setRestartHint(QSessionManager::RestartNever);
}

// The toolkit makes a short message so narrow that the window manager cuts its title.
void WidenForTitle(QMessageBox& box) {
  QFont titleFont = box.font();
  titleFont.setBold(true);
  const int title = QFontMetrics(titleFont).horizontalAdvance(box.windowTitle());
  constexpr int TitleButtons = 150;  // pixels, with the window's icon
  if (auto* text = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_label"))) {
    text->setMinimumWidth(title + TitleButtons);
  }
}

// By itself the toolkit calls our windows fillers, and a line between controls a frame.
QAccessibleInterface* RolesForReaders(const QString& /*class*/, QObject* object) {
  auto* const widget = qobject_cast<QWidget*>(object);
  if (widget == nullptr) return nullptr;
  if (widget->isWindow() &&
      (widget->objectName() == u"Form1" || widget->objectName() == u"FControl")) {
    return new QAccessibleWidget(widget, QAccessible::Window);
  }
  if (widget->objectName() == u"Line1")
    return new QAccessibleWidget(widget, QAccessible::Separator);
  return nullptr;
}

struct Toolkit {
  Toolkit() {
    InitResources();
    QAccessible::installFactory(RolesForReaders);
    QApplication::setQuitOnLastWindowClosed(false);
    QApplication::setDesktopFileName(QStringLiteral("quorbin"));
    QApplication::setWindowIcon(ProgramIcon(QStringLiteral("quorbin")));
  }
  QApplication application{argumentCount, arguments};
};

class QtFront final : public Front {
 public:
  explicit QtFront(EventLoop& loop);
  ~QtFront() override {
    openWindow = nullptr;
    qInstallMessageHandler(nullptr);
  }

  StatusDisplay& FControl() override { return display_; }
  MainWindow& Window() override { return window_; }
  ShellTray& Tray() override { return tray_; }
  void SetEvents(Events events) override;
  void ShowMessage(const std::string& text, const std::string& title) override;
  void UserSignal() override {}
  void Run() override;

 private:
  void Turn();

  EventLoop& loop_;
  // In the order of construction: the toolkit outlives every widget.
  Toolkit toolkit_;
  Events events_;
  // The loop's descriptor is the one that the toolkit watches: a burst of events costs one turn of
  // its loop, and a message box, which runs that loop within an event, can't raise a second one.
  QSocketNotifier notifier_;
  QtMainWindow window_{events_, loop_};
  QtStatusDisplay display_{events_};
  QtTray tray_{loop_};
};

QtFront::QtFront(EventLoop& loop)
    : loop_(loop), notifier_(loop.Descriptor(), QSocketNotifier::Read) {
  notifier_.setEnabled(false);
  QObject::connect(&notifier_, &QSocketNotifier::activated, [this] { Turn(); });
  // A session that ends asks the toolkit to quit, also while no window is on the screen.
  QObject::connect(&toolkit_.application, &QCoreApplication::aboutToQuit,
                   [this] { window_.Close(); });
  QObject::connect(&toolkit_.application, &QGuiApplication::saveStateRequest, NeverRestart);
  openWindow = &window_;
  printMessage = qInstallMessageHandler(HearLastWords);
  static const int registered = std::atexit(CloseWithSession);
  static_cast<void>(registered);
}

void QtFront::SetEvents(Events events) {
  const auto asEvent = [this](auto& handler) {
    if (!handler) return;
    handler = [this, inner = std::move(handler)](auto... values) {
      loop_.Raise([&] { inner(values...); });
    };
  };
  asEvent(events.Command1Click);
  asEvent(events.CommandParamClick);
  asEvent(events.MouseDown);
  asEvent(events.Resize);
  asEvent(events.CheckLogClick);
  asEvent(events.QueryUnload);
  events_ = std::move(events);
}

void QtFront::ShowMessage(const std::string& text, const std::string& title) {
  openWindow = nullptr;  // a loss of the display is the toolkit's exit now, with status 1
  const bool served = notifier_.isEnabled();
  notifier_.setEnabled(false);
  QMessageBox box(QMessageBox::Warning, ToText(title), ToText(text), QMessageBox::Ok);
  box.setTextFormat(Qt::PlainText);
  WidenForTitle(box);
  box.exec();
  notifier_.setEnabled(served);
}

void QtFront::Run() {
  window_.Appear();
  if (window_.Closed()) return;
  notifier_.setEnabled(true);
  QCoreApplication::exec();
  notifier_.setEnabled(false);
}

void QtFront::Turn() {
  QElapsedTimer turn;
  turn.start();
  while (loop_.ServeNext(0) && turn.elapsed() < TurnMilliseconds) {
  }
}

}  // namespace

std::unique_ptr<Front> OpenWindows(EventLoop& loop) {
  const std::string name = NamedDisplay();
  if (name.empty()) return nullptr;
  const DisplayProbe probe;  // stays connected until we are: a server without clients may restart
  if (!probe.Opened()) {
    Report("can't open the display " + name + "; going on without windows");
    return nullptr;
  }
  return std::make_unique<QtFront>(loop);
}

}  // namespace quorbin
