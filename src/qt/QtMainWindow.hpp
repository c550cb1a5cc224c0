#pragma once

#include <string>

#include "EventLoop.hpp"
#include "MainForm.hpp"
#include "MainWindow.hpp"
#include "WindowSystem.hpp"

namespace quorbin {

// Form1 on the screen.
class QtMainWindow final : public MainWindow {
 public:
  // Both outlive the window.
  QtMainWindow(const WindowEvents& events, EventLoop& loop);

  FormState WindowState() const override { return state_; }
  void SetWindowState(FormState state) override;
  bool Visible() const override { return visible_; }
  void SetVisible(bool visible) override;
  void BringToUser() override;
  WindowHandle Handle() const override;
  WindowHandle Icon() const override;
  void SetCaption(const std::string& caption) override;
  void SetLabel2(const std::string& caption) override;
  double OuterWidth() const override;
  double ControlWidth(FormControl control) const override;
  void SetLeft(FormControl control, double left) override;
  std::string StopsrvCaption() const override { return stopsrv_; }
  void SetStopsrvCaption(const std::string& caption) override;
  void Close() override;

  // From here on the window is on the screen while it is visible.
  void Appear();

 private:
  QLabel& Control(FormControl control) const;
  void Show();
  void RaiseMouseDown(QMouseEvent& event);
  void RaiseResize();

  const WindowEvents& events_;
  EventLoop& loop_;
  MainForm form_;
  std::string stopsrv_ = "OK";
  FormState state_ = FormState::Normal;
  bool visible_ = true;
  bool appeared_ = false;
  bool closed_ = false;
};

}  // namespace quorbin
