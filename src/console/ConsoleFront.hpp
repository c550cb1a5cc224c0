#pragma once

#include <functional>
#include <iostream>
#include <string>
#include <string_view>
#include <utility>

#include "ConsoleDisplay.hpp"
#include "EventLoop.hpp"
#include "Front.hpp"
#include "Printable.hpp"

namespace quorbin {

// The main window without a window system: its properties live in memory.
class ConsoleWindow final : public MainWindow {
 public:
  // close is called by the first Close.
  explicit ConsoleWindow(std::function<void()> close) : close_(std::move(close)) {}

  FormState WindowState() const override { return state_; }
  void SetWindowState(FormState state) override { state_ = state; }
  bool Visible() const override { return visible_; }
  void SetVisible(bool visible) override { visible_ = visible; }
  void BringToUser() override {}
  void SetCaption(const std::string& /*caption*/) override {}
  void SetLabel2(const std::string& /*caption*/) override {}
  double OuterWidth() const override { return 0; }
  double ControlWidth(FormControl /*control*/) const override { return 0; }
  void SetLeft(FormControl /*control*/, double /*left*/) override {}
  void Close() override {
    if (const auto close = std::exchange(close_, nullptr)) close();
  }

 private:
  std::function<void()> close_;
  FormState state_ = FormState::Normal;
  bool visible_ = true;
};

// A desktop without a tray: the icon is never seen, and no press comes from it.
class NoTray final : public ShellTray {
 public:
  void AddIcon(const std::string& /*tip*/, Events /*events*/) override {}
  void RemoveIcon() override {}
};

// The program without a screen.
class ConsoleFront final : public Front {
 public:
  // print takes all lines of an event at once. The loop must outlive the front.
  ConsoleFront(EventLoop& loop, std::function<void(std::string_view)> print)
      : loop_(loop), display_(std::move(print)) {}

  StatusDisplay& FControl() override { return display_; }
  MainWindow& Window() override { return window_; }
  ShellTray& Tray() override { return tray_; }
  void SetEvents(Events events) override { events_ = std::move(events); }
  void ShowMessage(const std::string& text, const std::string& title) override {
    std::cerr << Printable(title + ": " + text) << "\n";
  }
  void UserSignal() override {
    checkLog_ = !checkLog_;
    events_.CheckLogClick(checkLog_);
  }
  void Run() override { loop_.Run(); }

 private:
  EventLoop& loop_;
  Events events_;
  ConsoleDisplay display_;
  ConsoleWindow window_{[this] {
    events_.QueryUnload();
    loop_.Quit();
  }};
  NoTray tray_;
  bool checkLog_ = false;  // ticked
};

}  // namespace quorbin
