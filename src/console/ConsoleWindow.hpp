#pragma once

#include <functional>
#include <string>
#include <utility>

#include "MainWindow.hpp"
#include "ShellTray.hpp"

namespace quorbin {

// The main window without a window system: its properties live in memory.
class ConsoleWindow : public MainWindow {
 public:
  // queryUnload is run once, by the first Close.
  void SetEvents(std::function<void()> queryUnload) { queryUnload_ = std::move(queryUnload); }

  FormState WindowState() const override { return state_; }
  void SetWindowState(FormState state) override { state_ = state; }
  bool Visible() const override { return visible_; }
  void SetVisible(bool visible) override { visible_ = visible; }
  void BringToUser() override {}
  WindowHandle Handle() const override { return 0; }
  WindowHandle Icon() const override { return 0; }
  void SetCaption(const std::string& /*caption*/) override {}
  void SetLabel2(const std::string& /*caption*/) override {}
  double OuterWidth() const override { return 0; }
  double ControlWidth(FormControl /*control*/) const override { return 0; }
  void SetLeft(FormControl /*control*/, double /*left*/) override {}
  std::string StopsrvCaption() const override { return stopsrv_; }
  void SetStopsrvCaption(const std::string& caption) override { stopsrv_ = caption; }
  void Close() override {
    if (const auto queryUnload = std::exchange(queryUnload_, nullptr)) queryUnload();
  }

 private:
  std::function<void()> queryUnload_;
  FormState state_ = FormState::Normal;
  bool visible_ = true;
  std::string stopsrv_ = "OK";
};

// A desktop without a tray: the icon is never seen, and no mouse action comes from it.
class NoTray : public ShellTray {
 public:
  void Shell_NotifyIcon(NotifyOperation /*operation*/, const NotifyRecord& /*record*/) override {}
  WindowProc SetWindowProc(WindowHandle /*hWnd*/, WindowProc procedure) override {
    return std::exchange(procedure_, std::move(procedure));
  }

 private:
  WindowProc procedure_ = [](WindowHandle, std::uint32_t, std::uintptr_t, std::intptr_t) {
    return std::intptr_t{0};
  };
};

}  // namespace quorbin
