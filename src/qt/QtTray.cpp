#include "QtTray.hpp"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <utility>

#include "Report.hpp"
#include "WindowText.hpp"
#include "XServer.hpp"

namespace quorbin {

namespace {

// Time for a tray to come up, as at a log-in. The variable is for tests.
constexpr int PatienceMilliseconds = 10000;
constexpr const char* PatienceVariable = "QUORBIN_TRAY_PATIENCE_MS";

// Keeps the list of the status notifier hosts; it may run without any.
const QString WatcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString WatcherPath = QStringLiteral("/StatusNotifierWatcher");

bool NotifierHostRuns() {
  const QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected() || !bus.interface()->isServiceRegistered(WatcherService)) return false;
  // The same question that the toolkit asks, in the same way.
  const QDBusInterface watcher(WatcherService, WatcherPath, WatcherService, bus);
  return watcher.isValid() && watcher.property("IsStatusNotifierHostRegistered").toBool();
}

// A status notifier host may keep the right button for a menu, of the item or of its own, and
// report no press of it. KDE's is known to report it.
bool HostReportsRightButton() { return qgetenv("XDG_CURRENT_DESKTOP").split(':').contains("KDE"); }

}  // namespace

QtTray::QtTray(EventLoop& loop) : loop_(loop) {
  lookAgain_.setSingleShot(true);
  QObject::connect(&lookAgain_, &QTimer::timeout, [this] { PutIntoTray(); });
  bool given = false;
  const int patience = qEnvironmentVariableIntValue(PatienceVariable, &given);
  patience_.setSingleShot(true);
  patience_.setInterval(given ? patience : PatienceMilliseconds);
  QObject::connect(&patience_, &QTimer::timeout, [this] {
    Report(
        "no tray on this desktop: the main window is minimised, and the icon appears as soon as "
        "there is a tray");
    loop_.Raise(events_.NoTray);
  });
}

QtTray::~QtTray() { RemoveIcon(); }

void QtTray::AddIcon(const std::string& tip, Events events) {
  RemoveIcon();
  tip_ = tip;
  events_ = std::move(events);
  PutIntoTray();
  if (icon_) return;
  patience_.start();
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
  patience_.stop();
}

void QtTray::RemoveIcon() {
  if (watcher_) StopLooking();
  icon_.reset();
}

// The toolkit decides once per process, at the first use, which kind of tray there is. So it is
// left alone until there is one; from then on it follows a restart of the tray by itself.
void QtTray::PutIntoTray() {
  const bool notifierHost = NotifierHostRuns();
  if (!notifierHost && !EmbeddingTrayRuns()) return;
  if (watcher_) StopLooking();
  activationStandsIn_ = notifierHost && !HostReportsRightButton();
  // No menu: a host that is offered one draws it and reports no press.
  icon_ = std::make_unique<QSystemTrayIcon>(QApplication::windowIcon());
  icon_->setToolTip(ToText(tip_));
  QObject::connect(icon_.get(), &QSystemTrayIcon::activated,
                   [this](QSystemTrayIcon::ActivationReason reason) { Activated(reason); });
  icon_->show();
}

void QtTray::Activated(QSystemTrayIcon::ActivationReason reason) {
  const bool rightPress = reason == QSystemTrayIcon::Context ||
                          (activationStandsIn_ && reason == QSystemTrayIcon::Trigger);
  if (rightPress) loop_.Raise(events_.RightPress);
}

// A new embedding tray announces itself; we look again after the toolkit has seen it, too.
bool QtTray::nativeEventFilter(const QByteArray& type, void* message, qintptr*) {
  if (type == "xcb_generic_event_t" && IsAnnouncement(message)) lookAgain_.start();
  return false;
}

}  // namespace quorbin
