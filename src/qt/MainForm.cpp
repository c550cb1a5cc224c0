#include "MainForm.hpp"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QIcon>
#include <QPixmap>
#include <utility>

#include "Controls.hpp"

namespace quorbin {

namespace {

QPushButton* MakeButton(QWidget& form, const char* name, const QString& caption, int leftTwips) {
  auto* button = new QPushButton(caption, &form);
  button->setFont(ArialFont(12));  // 9 pt
  button->setToolTip(caption);
  return Place(button, name, {leftTwips, 3120, 2295, 372});
}

}  // namespace

MainForm::MainForm(Actions actions)
    : Image2(new QLabel(this)),
      Label1(new QLabel(QStringLiteral("Quorbin"), this)),
      Label2(new QLabel(this)),
      stopsrv(new QLabel(QStringLiteral("OK"), this)),
      Command1(MakeButton(*this, "Command1", QStringLiteral("Show Control Window"), 240)),
      CommandParam(MakeButton(*this, "CommandParam", QStringLiteral("Show INI-File"), 3000)),
      actions_(std::move(actions)) {
  setObjectName(QStringLiteral("Form1"));
  setFont(FormFont());
  setFixedSize(Pixels(5520), Pixels(3705));

  const QIcon logo(QStringLiteral(":/quorbin/logo.png"));  // finds the one for dense screens too
  Image2->setPixmap(logo.pixmap(QSize(174, 62), qGuiApp->devicePixelRatio()));
  Image2->setFrameStyle(QFrame::Box | QFrame::Sunken);
  Image2->setAccessibleName(QStringLiteral("Logo"));
  Place(Image2, "Image2", {810, 120, 2670, 990});

  Label1->setFont(ArialFont(24));  // 18 pt
  Label1->setAlignment(Qt::AlignCenter);
  Place(Label1, "Label1", {1485, 1200, 1320, 435});

  Label2->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
  Label2->setWordWrap(true);
  Label2->setTextFormat(Qt::PlainText);
  Place(Label2, "Label2", {840, 1800, 2775, 855});

  PlaceLine(*this, 5640, 2880);

  stopsrv->setTextFormat(Qt::PlainText);
  Place(stopsrv, "stopsrv", {3360, 1200, 612, 252});
  stopsrv->hide();

  // A press on a picture or a label is no press on the bare window.
  for (QWidget* control : {Image2, Label1, Label2}) {
    control->setAttribute(Qt::WA_NoMousePropagation);
  }
  setTabOrder(Command1, CommandParam);
}

void MainForm::mousePressEvent(QMouseEvent* event) { actions_.Pressed(*event); }

void MainForm::resizeEvent(QResizeEvent*) { actions_.Resized(); }

void MainForm::changeEvent(QEvent* event) {
  if (event->type() == QEvent::WindowStateChange) actions_.StateChanged(isMinimized());
  QWidget::changeEvent(event);
}

void MainForm::closeEvent(QCloseEvent* event) {
  actions_.Closed();
  event->accept();
}

}  // namespace quorbin
