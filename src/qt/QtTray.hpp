#pragma once

#include <QAbstractNativeEventFilter>
#include <QDBusServiceWatcher>
#include <QSystemTrayIcon>
#include <QTimer>
#include <memory>

#include "QtLoop.hpp"
#include "ShellTray.hpp"

namespace quorbin {

// The tray of the desktop, of either kind: hosts of status notifier items, which are found on the
// session bus, and the older ones that embed a window of ours. A host that comes up later gets the
// icon then.
class QtTray final : public ShellTray, private QAbstractNativeEventFilter {
 public:
  explicit QtTray(QtLoop& loop);  // outlives the tray
  ~QtTray() override;

  void Shell_NotifyIcon(NotifyOperation operation, const NotifyRecord& record) override;
  WindowProc SetWindowProc(WindowHandle hWnd, WindowProc procedure) override;

 private:
  void Add(const NotifyRecord& record);
  void Remove();
  void StopLooking();
  void PutIntoTray();
  void Activated(QSystemTrayIcon::ActivationReason reason);
  bool nativeEventFilter(const QByteArray& type, void* message, qintptr* result) override;

  QtLoop& loop_;
  WindowProc procedure_;
  NotifyRecord record_;
  std::unique_ptr<QSystemTrayIcon> icon_;
  std::unique_ptr<QDBusServiceWatcher> watcher_;  // while the icon waits for a tray
  QTimer lookAgain_;
  bool activationStandsIn_ = false;
};

}  // namespace quorbin
