// The windows and the loop of the toolkit, on a screen in memory.

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <QtWidgets>

#include "EpollLoop.hpp"
#include "QtFront.hpp"

namespace quorbin {
namespace {

EpollLoop* loop = nullptr;
Front* windows = nullptr;
std::string events;

void Note(const std::string& event, auto... values) {
  events += event;
  ((events += " " + std::to_string(values)), ...);
  events += "; ";
}

QWidget* Form(const QString& name) {
  const QWidgetList all = QApplication::topLevelWidgets();
  return *std::ranges::find(all, name, &QWidget::objectName);
}

template <class Widget = QWidget>
Widget* Find(const char* form, const char* name) {
  return Form(form)->findChild<Widget*>(name);
}

QString TextOf(const QWidget* control) {
  return control->property(control->inherits("QPlainTextEdit") ? "plainText" : "text").toString();
}

QString Shown(const char* field) { return TextOf(Find("FControl", field)); }

// Lets the windows follow the texts.
void WaitFor(auto reached) {
  const QDeadlineTimer limit(10000);
  while (!reached() && !limit.hasExpired()) QApplication::processEvents();
  EXPECT_TRUE(reached());
}

// A fresh control window on the screen, all fields empty.
struct Windows : testing::Test {
  void SetUp() override {
    display.CloseWindow();
    display.Show();
    QApplication::processEvents();
    events.clear();
  }
  StatusDisplay& display = windows->FControl();
  MainWindow& window = windows->Window();
};

// Nothing covers anything else or is cut off.
TEST_F(Windows, HaveRoomForEveryControl) {
  for (const char* const name : {"FControl", "Form1"}) {
    const QWidget* const form = Form(name);
    QList<const QWidget*> shown;
    for (const QWidget* const control : form->findChildren<QWidget*>()) {
      const QString& object = control->objectName();
      if (object.isEmpty() || object.startsWith("qt_") || control->isHidden()) continue;
      SCOPED_TRACE(object.toStdString());
      const bool line = object.startsWith("Line");  // from edge to edge
      EXPECT_TRUE(line || control->parentWidget()->rect().contains(control->geometry()));
      for (const QWidget* const other : shown) {
        EXPECT_FALSE(other->parent() == control->parent() &&
                     control->geometry().intersects(other->geometry()))
            << other->objectName().toStdString();
      }
      shown.push_back(control);
    }
    EXPECT_GE(shown.size(), 5);
  }
}

// A reader of the screen, and the keyboard, reach every field. The type of the file is not shown.
TEST_F(Windows, FieldsAreReachable) {
  for (const char* const name :
       {"aktion", "partner", "dateiname", "kdo", "resu", "ftp", "fext", "kprf", "kext", "Satz"}) {
    SCOPED_TRACE(name);
    const QWidget* const field = Find("FControl", name);
    ASSERT_TRUE(field);
    EXPECT_TRUE(field->property("readOnly").toBool() && field->focusPolicy() & Qt::TabFocus);
    EXPECT_FALSE(field->accessibleName().isEmpty());
    EXPECT_EQ(field->isHidden(), name == std::string_view("ftp"));
  }
}

TEST_F(Windows, ShowTextsAsTheyChange) {
  display.Write(Field::kdo, "gr\xFC\xDF");
  EXPECT_EQ(display.Text(Field::kdo), "gr\xFC\xDF");
  WaitFor([] { return Shown("kdo") == "grüß"; });
  display.Write(Field::kdo, "bill\u202Efdp.\x1B\u009B\u200B\u2028\uFEFF\u200A");
  WaitFor([] { return Shown("kdo") == "bill\uFFFDfdp.\u241B\uFFFD\uFFFD\uFFFD\uFFFD\u200A"; });
  display.AppendLine("\xC3\xA4 b");
  display.AppendLine("\xE4\nc \xE2\x82");
  WaitFor([] { return Shown("Satz") == "ä b\nä\nc â\uFFFD\n"; });
  display.AppendLine("last");
  WaitFor([] { return Shown("Satz") == "ä b\nä\nc â\uFFFD\nlast\n"; });
  display.Write(Field::Satz, "");
  WaitFor([] { return Shown("Satz").isEmpty(); });
}

TEST_F(Windows, LogFollowsWithoutItsDroppedLines) {
  auto* const satz = Find<QPlainTextEdit>("FControl", "Satz");
  const std::string filler(10000, 'x');
  for (int i = 0; i < 1700; ++i) {  // beyond 16 MiB, with a window that follows now and then
    display.AppendLine(std::to_string(i) + filler);
    if (i % 500 == 0) WaitFor([=] { return satz->blockCount() > 1; });
  }
  EXPECT_EQ(satz->verticalScrollBar()->value(), 0);  // the view stays where it is
  const std::string held = display.Text(Field::Satz);
  const auto lines = std::ranges::count(held, '\n');
  WaitFor([=] { return satz->blockCount() == 3 * lines + 1; });  // three pieces each
  // Nothing is cut: a long line is shown in pieces.
  EXPECT_EQ(satz->document()->firstBlock().text().toStdString(), held.substr(0, 4096));
}

TEST_F(Windows, ClosedByHandTheControlWindowForgets) {
  auto* const checkLog = Find<QAbstractButton>("FControl", "CheckLog");
  checkLog->click();
  display.Write(Field::partner, "somebody");
  display.AppendLine("line");
  Form("FControl")->close();
  display.Write(Field::aktion, "listening");
  EXPECT_EQ(display.Text(Field::partner) + display.Text(Field::Satz), "");
  EXPECT_FALSE(checkLog->isChecked());
  EXPECT_EQ(events, "CheckLog 1; ");
  display.Show();
  EXPECT_EQ(Shown("aktion") + Shown("Satz"), "listening");
}

TEST_F(Windows, TheNoticeHasRoomForItsLines) {
  window.SetLabel2("a\r\nb of some length that is wider than its place\r\nc\r\nd");
  const auto* label = Find<QLabel>("Form1", "Label2");
  EXPECT_EQ(label->text(), "a\nb of some length that is wider than its place\nc\nd");
  EXPECT_GE(label->height(), label->heightForWidth(label->width()));
}

// Hidden and shown again, the main window is on the screen that is left.
void ReturnsToAScreenThatExists(MainWindow& window) {
  QWidget* const form = Form("Form1");
  form->move(5000, 45);
  window.SetVisible(false);
  window.SetVisible(true);
  EXPECT_TRUE(form->screen()->geometry().contains(form->windowHandle()->geometry()));
}

// A message box within an event. Another descriptor is ready meanwhile and waits for its end.
TEST_F(Windows, ServeTheLoopUntilTheMainWindowCloses) {
  const int first = eventfd(1, 0);
  const int second = eventfd(1, 0);
  loop->Watch(first, EventLoop::Readable, [&](unsigned) {
    loop->Unwatch(first);
    loop->Watch(second, EventLoop::Readable, [&](unsigned) {
      Note("second");
      ReturnsToAScreenThatExists(window);
      window.Close();
      window.Close();
    });
    QTimer::singleShot(50, [] {
      auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
      ASSERT_TRUE(box);
      Note(box->windowTitle().toStdString() + ": " + box->text().toStdString(), box->icon());
      box->button(QMessageBox::Ok)->click();
    });
    windows->ShowMessage("<b>text</b>", "title");
    Note("first");
  });
  windows->Run();
  EXPECT_EQ(events, "Resize; title: <b>text</b> 2; first; second; QueryUnload; ");
  close(first);
  close(second);
}

}  // namespace
}  // namespace quorbin

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  setenv("QT_QPA_PLATFORM", "offscreen", 1);
  setenv("DISPLAY", ":0", 1);
  using namespace quorbin;
  EpollLoop served;
  loop = &served;
  const auto opened = OpenWindows(served);
  if (!opened) return EXIT_FAILURE;
  windows = opened.get();
  windows->SetEvents({
      .Command1Click = [] {},
      .CommandParamClick = [] {},
      .MouseDown = [](int /*button*/, int /*shift*/) {},
      .Resize = [] { Note("Resize"); },
      .CheckLogClick = [](bool ticked) { Note("CheckLog", ticked); },
      .QueryUnload = [] { Note("QueryUnload"); },
  });
  return RUN_ALL_TESTS();
}
