#include "QtTray.hpp"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <cstdint>
#include <cstdio>
#include <utility>

#include "WindowText.hpp"
#include "XServer.hpp"

namespace quorbin {

namespace {

// Keeps the list of the status notifier hosts; it can be there without one.
const QString WatcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString WatcherPath = QStringLiteral("/StatusNotifierWatcher");

bool NotifierHostRuns() {
  const QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected() || !bus.interface()->isServiceRegistered(WatcherService)) return false;
  // The question that the toolkit asks, by the same way.
  const QDBusInterface watcher(WatcherService, WatcherPath, WatcherService, bus);
  return watcher.isValid() && watcher.property("IsStatusNotifierHostRegistered").toBool();
}

// The status notifier host of this desktop keeps the right button for an item's menu and reports
// no press of it.
bool HostKeepsRightButton() { return qgetenv("XDG_CURRENT_DESKTOP").split(':').contains("GNOME"); }

std::intptr_t IgnoreMessage(WindowHandle, std::uint32_t, std::uintptr_t, std::intptr_t) {
  return 0;
}

}  // namespace

QtTray::QtTray(QtLoop& loop) : loop_(loop), procedure_(IgnoreMessage) {
  lookAgain_.setSingleShot(true);
  QObject::connect(&lookAgain_, &QTimer::timeout, [this] { PutIntoTray(); });
}

QtTray::~QtTray() { Remove(); }

void QtTray::Shell_NotifyIcon(NotifyOperation operation, const NotifyRecord& record) {
  switch (operation) {
    case NotifyOperation::NIM_ADD:
      return Add(record);
    case NotifyOperation::NIM_DELETE:
      return Remove();
  }
}

WindowProc QtTray::SetWindowProc(WindowHandle, WindowProc procedure) {
  return std::exchange(procedure_, std::move(procedure));
}

void QtTray::Add(const NotifyRecord& record) {
  Remove();
  record_ = record;
  PutIntoTray();
  if (icon_) return;
  std::fputs("Quorbin: no tray on this desktop; the icon appears as soon as there is one\n",
             stderr);
  QDBusConnection bus = QDBusConnection::sessionBus();
  watcher_ = std::make_unique<QDBusServiceWatcher>(WatcherService, bus,
                                                   QDBusServiceWatcher::WatchForRegistration);
  QObject::connect(watcher_.get(), &QDBusServiceWatcher::serviceRegistered,
                   [this] { lookAgain_.start(); });
  bus.connect(WatcherService, WatcherPath, WatcherService,
              QStringLiteral("StatusNotifierHostRegistered"), &lookAgain_, SLOT(start()));
  QCoreApplication::instance()->installNativeEventFilter(this);
}

void QtTray::StopLooking() {
  QCoreApplication::instance()->removeNativeEventFilter(this);
  QDBusConnection::sessionBus().disconnect(WatcherService, WatcherPath, WatcherService,
                                           QStringLiteral("StatusNotifierHostRegistered"),
                                           &lookAgain_, SLOT(start()));
  watcher_.reset();
  lookAgain_.stop();
}

void QtTray::Remove() {
  if (watcher_) StopLooking();
  icon_.reset();
}

// The toolkit decides once per process, at the first use, which kind of tray there is. So it is
// left alone until there is one; from then on it follows a restart of the tray by itself.
void QtTray::PutIntoTray() {
  const bool notifierHost = NotifierHostRuns();
  if (!notifierHost && !EmbeddingTrayRuns()) return;
  if (watcher_) StopLooking();
  activationStandsIn_ = notifierHost && HostKeepsRightButton();
  // No menu: a host that is offered one draws it and reports no press.
  icon_ = std::make_unique<QSystemTrayIcon>(QApplication::windowIcon());
  icon_->setToolTip(ToText(record_.szTip));
  QObject::connect(icon_.get(), &QSystemTrayIcon::activated,
                   [this](QSystemTrayIcon::ActivationReason reason) { Activated(reason); });
  icon_->show();
}

void QtTray::Activated(QSystemTrayIcon::ActivationReason reason) {
  const bool rightPress = reason == QSystemTrayIcon::Context ||
                          (activationStandsIn_ && reason == QSystemTrayIcon::Trigger);
  if (!rightPress) return;
  loop_.Dispatch(
      [this] { procedure_(record_.hWnd, record_.uCallbackMessage, record_.uID, WM_RBUTTONDOWN); });
}

// A new embedding tray announces itself; we look again after the toolkit has seen it, too.
bool QtTray::nativeEventFilter(const QByteArray& type, void* message, qintptr*) {
  if (type == "xcb_generic_event_t" && IsAnnouncement(message)) lookAgain_.start();
  return false;
}

}  // namespace quorbin
