#pragma once

#include <QAbstractNativeEventFilter>
#include <QDBusServiceWatcher>
#include <QSystemTrayIcon>
#include <QTimer>
#include <functional>
#include <memory>
#include <string>

#include "EventLoop.hpp"
#include "ShellTray.hpp"

namespace quorbin {

// The tray of the desktop, of either kind: hosts of status notifier items, which are found on the
// session bus, and the older ones that embed a window of ours. A host that comes up later gets the
// icon then.
class QtTray final : public ShellTray, private QAbstractNativeEventFilter {
 public:
  explicit QtTray(EventLoop& loop);  // outlives the tray
  ~QtTray() override;

  void AddIcon(const std::string& tip, Events events) override;
  void RemoveIcon() override;

 private:
  void StopLooking();
  void PutIntoTray();
  void Activated(QSystemTrayIcon::ActivationReason reason);
  bool nativeEventFilter(const QByteArray& type, void* message, qintptr* result) override;

  EventLoop& loop_;
  std::string tip_;
  Events events_;
  std::unique_ptr<QSystemTrayIcon> icon_;
  std::unique_ptr<QDBusServiceWatcher> watcher_;  // while the icon waits for a tray
  QTimer lookAgain_;
  QTimer patience_;
  bool activationStandsIn_ = false;
};

}  // namespace quorbin
