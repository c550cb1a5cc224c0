#include "WindowSystem.hpp"

#include <QApplication>
#include <QIcon>
#include <QMessageBox>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "DisplayProbe.hpp"
#include "QtLoop.hpp"
#include "QtMainWindow.hpp"
#include "QtStatusDisplay.hpp"
#include "QtTray.hpp"
#include "WindowText.hpp"
#include "XServer.hpp"

// The resources of a static library are there once this was called, outside of any namespace.
static void InitResources() { Q_INIT_RESOURCE(quorbin); }

namespace quorbin {

namespace {

// The toolkit keeps references to both.
int argumentCount = 1;
char programName[] = "Quorbin";
char* arguments[] = {programName, nullptr};

QtMainWindow* openWindow = nullptr;  // for the end of the display, told by exit alone

std::string NamedDisplay() {
  for (const char* name : {"WAYLAND_DISPLAY", "DISPLAY"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && *value != '\0') return value;
  }
  return {};
}

// The toolkit calls exit when the display goes away, as it does at the end of a session. That is
// a close of the main window like any other. Any other exit is none of ours.
void CloseWithDisplay() {
  if (openWindow == nullptr || !DisplayLost()) return;
  openWindow->Close();
  std::_Exit(EXIT_SUCCESS);
}

}  // namespace

struct WindowSystem::Parts {
  struct Toolkit {
    Toolkit() {
      InitResources();
      QApplication::setQuitOnLastWindowClosed(false);
      QApplication::setDesktopFileName(QStringLiteral("quorbin"));
      QApplication::setWindowIcon(ProgramIcon(QStringLiteral("quorbin")));
    }
    QApplication application{argumentCount, arguments};
  };

  Parts() {
    // A session that ends asks the toolkit to quit, also while no window is on the screen.
    QObject::connect(&toolkit.application, &QCoreApplication::aboutToQuit,
                     [this] { window.Close(); });
    openWindow = &window;
    static const int registered = std::atexit(CloseWithDisplay);
    static_cast<void>(registered);
  }
  ~Parts() { openWindow = nullptr; }
  Parts(const Parts&) = delete;
  Parts& operator=(const Parts&) = delete;

  // In the order of construction: the toolkit outlives every widget.
  Toolkit toolkit;
  WindowEvents events;
  QtLoop loop;
  QtMainWindow window{events, loop};
  QtStatusDisplay display{events};
  QtTray tray{loop};
};

WindowSystem::WindowSystem(std::unique_ptr<Parts> parts) : parts_(std::move(parts)) {}
WindowSystem::~WindowSystem() = default;

std::unique_ptr<WindowSystem> WindowSystem::Open() {
  const std::string name = NamedDisplay();
  if (name.empty()) return nullptr;
  const DisplayProbe probe;  // stays connected until we are, or a lone server would restart itself
  if (!probe.Opened()) {
    std::fprintf(stderr, "Quorbin: can't open the display %s; going on without windows\n",
                 name.c_str());
    return nullptr;
  }
  return std::unique_ptr<WindowSystem>(new WindowSystem(std::make_unique<Parts>()));
}

EventLoop& WindowSystem::Loop() { return parts_->loop; }
StatusDisplay& WindowSystem::FControl() { return parts_->display; }
MainWindow& WindowSystem::Window() { return parts_->window; }
ShellTray& WindowSystem::Tray() { return parts_->tray; }

void WindowSystem::SetEvents(WindowEvents events) {
  // A window's event is a callback of the loop like one of a descriptor.
  const auto asCallback = [this](auto& handler) {
    if (!handler) return;
    handler = [&loop = parts_->loop, inner = std::move(handler)](auto... values) {
      loop.Dispatch([&] { inner(values...); });
    };
  };
  asCallback(events.Command1Click);
  asCallback(events.CommandParamClick);
  asCallback(events.MouseDown);
  asCallback(events.Resize);
  asCallback(events.CheckLogClick);
  asCallback(events.QueryUnload);
  parts_->events = std::move(events);
}

void WindowSystem::ShowMainWindow() { parts_->window.Appear(); }

void ShowMessageBox(const std::string& text, const std::string& title) {
  QMessageBox box(QMessageBox::Warning, ToText(title), ToText(text), QMessageBox::Ok);
  box.setTextFormat(Qt::PlainText);
  box.exec();
}

}  // namespace quorbin
