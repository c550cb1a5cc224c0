// The windows, the tray and the loop of the toolkit, on a screen in memory.

#include <gtest/gtest.h>
#include <unistd.h>

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QTextBlock>
#include <QTimer>
#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "WindowSystem.hpp"

namespace quorbin {
namespace {

WindowSystem* windows = nullptr;
std::vector<std::string> events;

template <class Widget = QWidget>
Widget* Find(const char* form, const char* name) {
  for (QWidget* top : QApplication::topLevelWidgets()) {
    if (top->objectName() != form) continue;
    return *name == '\0' ? dynamic_cast<Widget*>(top) : top->findChild<Widget*>(name);
  }
  return nullptr;
}

QString Shown(const char* field) {
  if (const auto* line = Find<QLineEdit>("FControl", field)) return line->text();
  return Find<QPlainTextEdit>("FControl", field)->toPlainText();
}

// Lets the windows follow the texts.
void WaitFor(const std::function<bool()>& reached) {
  QTimer limit;
  limit.setSingleShot(true);
  limit.start(10000);
  while (!reached() && limit.isActive()) {
    QApplication::processEvents(QEventLoop::WaitForMoreEvents);
  }
  EXPECT_TRUE(reached());
}

void Press(QWidget* target, Qt::MouseButton button, Qt::KeyboardModifiers keys) {
  const QPointF at(2, 2);
  QMouseEvent press(QEvent::MouseButtonPress, at, target->mapToGlobal(at), button, button, keys);
  QApplication::sendEvent(target, &press);
}

// A fresh control window on the screen, nothing in it.
class Windows : public testing::Test {
 protected:
  void SetUp() override {
    windows->FControl().CloseWindow();
    windows->FControl().Show();
    QApplication::processEvents();
    events.clear();
  }
};

struct Row {
  const char* Form;
  const char* Name;
  const char* Text;
  const char* Tip;
  int Left, Top, Width, Height;  // twips
  bool Visible = true;
};

constexpr const char* AktionTip = "aktuelle Aktion";
constexpr const char* PartnerTip = "Name des Servers, der die Datei gesendet hat";
constexpr const char* KdoTip = "Kommando für den Programm-Aufruf zur Anzeige/Bearbeitung der Datei";
constexpr const char* FtpTip = "Datei-Typ \"binary\" oder \"text\"";
constexpr const char* FextTip = "maßgeblicher Datei-Suffix zum Starten des Windows-Programms";
constexpr const char* KprfTip = "Parameter vor dem Dateinamen";
constexpr const char* KextTip = "Parameter nach dem Dateinamen";

const Row Rows[] = {
    {"FControl", "", "Quorbin - Control-Window", "", -1, -1, 6930, 8505},
    {"FControl", "Label1(3)", "Action", AktionTip, 120, 120, 0, 0},
    {"FControl", "aktion", "", "", 1080, 120, 5500, 288},
    {"FControl", "Label1(2)", "Partner", PartnerTip, 120, 480, 0, 0},
    {"FControl", "partner", "", "", 1080, 480, 5500, 288},
    {"FControl", "Label1(0)", "Filename", "Lokaler Dateiname", 90, 840, 0, 0},
    {"FControl", "dateiname", "", "", 1080, 840, 5500, 288},
    {"FControl", "Label1(1)", "Command", KdoTip, 120, 1200, 0, 0},
    {"FControl", "kdo", "", "", 1080, 1200, 5500, 1008},
    {"FControl", "Label1(4)", "Result", "Ergebnis", 120, 2280, 0, 0},
    {"FControl", "resu", "", "", 1080, 2280, 5500, 288},
    {"FControl", "Line1", "", "", 0, 2895, 6960, 0},
    {"FControl", "Label2", "received params", "", 1110, 3105, 5520, 495},
    {"FControl", "Label3", "Filetype", FtpTip, 120, 3285, 0, 0, false},
    {"FControl", "ftp", "", FtpTip, 1080, 3285, 5500, 240, false},
    {"FControl", "Label4", "Extension", FextTip, 120, 3600, 0, 0},
    {"FControl", "fext", "", FextTip, 1080, 3600, 5500, 288},
    {"FControl", "Label5", "Prefix", KprfTip, 90, 3960, 0, 0},
    {"FControl", "kprf", "", KprfTip, 1080, 3960, 5500, 612},
    {"FControl", "Label6", "Suffix", KextTip, 120, 4680, 0, 0},
    {"FControl", "kext", "", KextTip, 1080, 4680, 5500, 612},
    {"FControl", "Data", "Data", "Daten", 120, 5400, 0, 0},
    {"FControl", "Satz", "", "Daten", 1080, 5400, 5500, 2295},
    {"FControl", "CheckLog", "Write all Messages ", "Alle Meldungen anzeigen", 1080, 8040, 5520,
     375},
    {"Form1", "", "", "", -1, -1, 5520, 3705, false},
    {"Form1", "Image2", "", "", 810, 120, 2670, 990},
    {"Form1", "Label1", "Quorbin", "", 1485, 1200, 1320, 435},
    {"Form1", "Label2", "", "", 840, 1800, 2775, 855},
    {"Form1", "Line1", "", "", 0, 2880, 5640, 0},
    {"Form1", "Command1", "Show Control Window", "Show Control Window", 240, 3120, 2295, 372},
    {"Form1", "CommandParam", "Show INI-File", "Show INI-File", 3000, 3120, 2295, 372},
    {"Form1", "stopsrv", "OK", "", 3360, 1200, 612, 252, false},
};

QString TextOf(QWidget* control) {
  if (control->isWindow()) return control->windowTitle();
  return control->property(control->inherits("QPlainTextEdit") ? "plainText" : "text").toString();
}

TEST_F(Windows, HaveEveryControlInItsPlace) {
  for (const Row& row : Rows) {
    SCOPED_TRACE(std::string(row.Form) + "." + row.Name);
    QWidget* const control = Find(row.Form, row.Name);
    ASSERT_TRUE(control);
    EXPECT_EQ(TextOf(control), row.Text);
    EXPECT_EQ(control->toolTip(), row.Tip);
    if (!control->isWindow()) {
      EXPECT_NEAR(control->x() * 15, row.Left, 15);
      EXPECT_NEAR(control->y() * 15, row.Top, 15);
    }
    EXPECT_GE((control->width() + 1) * 15, row.Width);
    EXPECT_GE((control->height() + 1) * 15, row.Height);
    EXPECT_EQ(control->isHidden(), !row.Visible);
    const bool field = control->inherits("QLineEdit") || control->inherits("QPlainTextEdit");
    if (!field) continue;
    EXPECT_NEAR(control->width() * 15, row.Width, 15);
    EXPECT_NEAR(control->height() * 15, row.Height, 15);
    EXPECT_TRUE(control->property("readOnly").toBool());
    EXPECT_NE(control->accessibleName(), "");
    EXPECT_TRUE(control->focusPolicy() & Qt::TabFocus);
  }
  EXPECT_EQ(Find<QLabel>("Form1", "Image2")->pixmap().size(), QSize(174, 62));
}

TEST_F(Windows, ShowTextsAsTheyChange) {
  StatusDisplay& display = windows->FControl();
  struct {
    std::string Bytes;
    QString Text;
  } const texts[] = {{"plain", "plain"},
                     {"gr\xC3\xBC\xC3\x9F", "grüß"},
                     {"gr\xFC\xDF", "grüß"},
                     {"cut \xE2\x82", "cut â\u0082"}};
  for (const auto& text : texts) {
    display.Write(Field::kdo, text.Bytes);
    EXPECT_EQ(display.Text(Field::kdo), text.Bytes);
    WaitFor([&text] { return Shown("kdo") == text.Text; });
  }
  display.AppendLine("\xC3\xA4 b");
  display.AppendLine("\xE4\nc");
  WaitFor([] { return Shown("Satz") == "ä b\nä\nc\n"; });
  display.AppendLine("last");
  WaitFor([] { return Shown("Satz") == "ä b\nä\nc\nlast\n"; });
  display.Write(Field::Satz, "");
  WaitFor([] { return Shown("Satz").isEmpty(); });
}

TEST_F(Windows, LogFollowsWithoutItsDroppedLines) {
  StatusDisplay& display = windows->FControl();
  auto* const satz = Find<QPlainTextEdit>("FControl", "Satz");
  const std::string filler(10000, 'x');
  for (int i = 0; i < 1700; ++i) {  // beyond 16 MiB, with a window that follows now and then
    display.AppendLine(std::to_string(i) + filler);
    if (i % 500 == 0) WaitFor([=] { return satz->document()->lastBlock().blockNumber() > 0; });
  }
  EXPECT_EQ(satz->verticalScrollBar()->value(), 0);  // nothing moves the view
  const std::string held = display.Text(Field::Satz);
  const auto lines = static_cast<int>(std::count(held.begin(), held.end(), '\n'));
  WaitFor([=] { return satz->blockCount() == 3 * lines + 1; });  // three pieces each
  EXPECT_EQ(satz->document()->firstBlock().text().toStdString(), held.substr(0, 4096));
}

TEST_F(Windows, ClosedByHandTheControlWindowForgets) {
  StatusDisplay& display = windows->FControl();
  auto* const checkLog = Find<QAbstractButton>("FControl", "CheckLog");
  checkLog->click();
  display.Write(Field::partner, "somebody");
  display.AppendLine("line");
  Find("FControl", "")->close();
  display.Write(Field::aktion, "listening");
  EXPECT_TRUE(Find("FControl", "")->isHidden());
  EXPECT_EQ(display.Text(Field::partner) + display.Text(Field::Satz), "");
  EXPECT_FALSE(checkLog->isChecked());
  EXPECT_EQ(events, std::vector<std::string>{"CheckLog 1"});
  display.Show();
  EXPECT_EQ(Shown("aktion"), "listening");
  EXPECT_EQ(Shown("Satz"), "");
}

TEST_F(Windows, RaiseTheEventsOfTheMainWindow) {
  QWidget* const form = Find("Form1", "");
  Press(form, Qt::LeftButton, Qt::ControlModifier);
  Press(form, Qt::RightButton, Qt::ControlModifier | Qt::ShiftModifier);
  Press(form, Qt::MiddleButton, Qt::AltModifier);
  Press(Find("Form1", "Label1"), Qt::LeftButton, Qt::ControlModifier);
  Press(Find("Form1", "Image2"), Qt::LeftButton, Qt::ControlModifier);
  Find<QAbstractButton>("Form1", "Command1")->click();
  Find<QAbstractButton>("Form1", "CommandParam")->click();
  EXPECT_EQ(events, (std::vector<std::string>{"MouseDown 1 2", "MouseDown 2 3", "MouseDown 4 4",
                                              "Command1", "CommandParam"}));
}

TEST_F(Windows, MainWindowHidesAndComesBack) {
  MainWindow& window = windows->Window();
  QWidget* const form = Find("Form1", "");
  window.SetVisible(false);
  windows->ShowMainWindow();
  EXPECT_TRUE(form->isHidden());
  window.SetWindowState(FormState::Normal);
  window.SetVisible(true);
  EXPECT_TRUE(form->isVisible());
  events.clear();
  form->showMinimized();  // as the desktop does it
  EXPECT_EQ(window.WindowState(), FormState::Minimised);
  EXPECT_EQ(events, std::vector<std::string>{"Resize"});
  window.SetVisible(false);
  window.SetWindowState(FormState::Normal);
  window.SetVisible(true);
  EXPECT_TRUE(form->isVisible() && !form->isMinimized());
}

TEST_F(Windows, CentredControlsKeepTheirText) {
  MainWindow& window = windows->Window();
  window.SetLeft(FormControl::Label2,
                 (window.OuterWidth() - window.ControlWidth(FormControl::Label2)) / 2);
  window.SetLabel2("a\r\nb\r\nc of some length that is wider than its place\r\nd");
  const auto* label = Find<QLabel>("Form1", "Label2");
  EXPECT_EQ(label->text().count('\n'), 3);
  EXPECT_NEAR(label->geometry().center().x() * 15, window.OuterWidth() / 2, 15);
  EXPECT_GE(label->height(), label->heightForWidth(label->width()));
}

// Descriptors, deferred tasks and a message box within a callback, in the order that is promised.
TEST_F(Windows, LoopRunsOneCallbackAtATime) {
  EventLoop& loop = windows->Loop();
  int first[2];
  int second[2];
  ASSERT_EQ(pipe(first) | pipe(second), 0);
  ASSERT_EQ(write(first[1], "a", 1) + write(second[1], "b", 1), 2);
  loop.Watch(second[1], EventLoop::Writable, [&](unsigned readiness) {
    events.push_back("writable " + std::to_string(readiness));
    loop.Unwatch(second[1]);
  });
  loop.Watch(first[0], EventLoop::Readable, [&](unsigned readiness) {
    events.push_back("readable " + std::to_string(readiness));
    loop.Unwatch(first[0]);
    loop.Defer([] { events.push_back("deferred"); });
    loop.Watch(second[0], EventLoop::Readable, [&](unsigned) {
      events.push_back("second");
      loop.Unwatch(second[0]);
      windows->Window().Close();
      windows->Window().Close();
    });
    QTimer dismiss;
    dismiss.setSingleShot(true);
    QObject::connect(&dismiss, &QTimer::timeout, [] {
      auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
      ASSERT_TRUE(box);
      events.push_back(box->windowTitle().toStdString() + ": " + box->text().toStdString());
      EXPECT_EQ(box->icon(), QMessageBox::Warning);
      box->button(QMessageBox::Ok)->click();
    });
    dismiss.start();
    ShowMessageBox("<b>text</b>", "title");
  });
  loop.Run();
  EXPECT_EQ(events, (std::vector<std::string>{"writable 2", "readable 1", "title: <b>text</b>",
                                              "deferred", "second", "QueryUnload"}));
  for (const int end : {first[0], first[1], second[0], second[1]}) close(end);
}

}  // namespace
}  // namespace quorbin

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  setenv("QT_QPA_PLATFORM", "offscreen", 1);
  setenv("DISPLAY", ":0", 1);
  using namespace quorbin;
  const std::unique_ptr<WindowSystem> opened = WindowSystem::Open();
  if (!opened) return EXIT_FAILURE;
  windows = opened.get();
  windows->SetEvents({
      .Command1Click = [] { events.push_back("Command1"); },
      .CommandParamClick = [] { events.push_back("CommandParam"); },
      .MouseDown =
          [](int button, int shift) {
            events.push_back("MouseDown " + std::to_string(button) + " " + std::to_string(shift));
          },
      .Resize = [] { events.push_back("Resize"); },
      .CheckLogClick = [](bool ticked) { events.push_back("CheckLog " + std::to_string(ticked)); },
      .QueryUnload = [] { events.push_back("QueryUnload"); },
  });
  return RUN_ALL_TESTS();
}
