#pragma once

#include <QLabel>
#include <QPoint>
#include <QPushButton>
#include <QWidget>
#include <optional>
#include <string>

#include "EventLoop.hpp"
#include "Front.hpp"

namespace quorbin {

// Form1 on the screen.
class QtMainWindow final : public QWidget, public MainWindow {
 public:
  // Both outlive the window.
  QtMainWindow(const Front::Events& events, EventLoop& loop);

  FormState WindowState() const override { return state_; }
  void SetWindowState(FormState state) override;
  bool Visible() const override { return visible_; }
  void SetVisible(bool visible) override;
  void BringToUser() override;
  void SetCaption(const std::string& caption) override;
  void SetLabel2(const std::string& caption) override;
  double OuterWidth() const override;
  double ControlWidth(FormControl control) const override;
  void SetLeft(FormControl control, double left) override;
  void Close() override;

  bool Closed() const { return closed_; }
  // From here on the window is on the screen while it is visible.
  void Appear();

 protected:
  void mousePressEvent(QMouseEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  QLabel& Control(FormControl control) const;
  void PutOnScreen();
  void ReturnTo(QPoint place);
  void RaiseResize();

  const Front::Events& events_;
  EventLoop& loop_;
  // Children of the window; the toolkit deletes them with it.
  QLabel* Image2_;
  QLabel* Label1_;
  QLabel* Label2_;
  FormState state_ = FormState::Normal;
  bool visible_ = true;
  bool appeared_ = false;
  std::optional<QPoint> place_;  // where it was when it was hidden
  bool closed_ = false;
};

}  // namespace quorbin
