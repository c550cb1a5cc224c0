#pragma once

#include <QLabel>
#include <QPushButton>
#include <QWidget>
#include <functional>

namespace quorbin {

// The main window on the screen: its controls, and what is done to it.
class MainForm final : public QWidget {
 public:
  struct Actions {
    std::function<void(QMouseEvent&)> Pressed;  // on the bare window
    std::function<void()> Resized;
    std::function<void(bool minimised)> StateChanged;  // by the desktop as well as by us
    std::function<void()> Closed;
  };

  explicit MainForm(Actions actions);

  // Children of the window; the toolkit deletes them with it.
  QLabel* Image2;
  QLabel* Label1;
  QLabel* Label2;
  QLabel* stopsrv;
  QPushButton* Command1;
  QPushButton* CommandParam;

 protected:
  void mousePressEvent(QMouseEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  Actions actions_;
};

}  // namespace quorbin
