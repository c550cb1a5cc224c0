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

TEST_F(Windows, HaveEveryControlInItsPlace) {
  const struct {
    const char *Name, *TextAndTip;
    int Left, Top, Height;                       // twips
    const char *Field = "", *Form = "FControl";  // a label has the size of its field
    int Width = 5500;
  } rows[] = {
      {"Label1(3)", "Action|aktuelle Aktion", 120, 120, 288, "aktion"},
      {"Label1(2)", "Partner|Name des Servers, der die Datei gesendet hat", 120, 480, 288,
       "partner"},
      {"Label1(0)", "Filename|Lokaler Dateiname", 90, 840, 288, "dateiname"},
      {"Label1(1)", "Command|Kommando für den Programm-Aufruf zur Anzeige/Bearbeitung der Datei",
       120, 1200, 1008, "kdo"},
      {"Label1(4)", "Result|Ergebnis", 120, 2280, 288, "resu"},
      {"Line1", "|", 0, 2895, 0, "", "FControl", 6960},
      {"Label2", "received params|", 1110, 3105, 495, "", "FControl", 5520},
      {"Label3", "Filetype|Datei-Typ \"binary\" oder \"text\"", 120, 3285, 240, "ftp"},
      {"Label4", "Extension|maßgeblicher Datei-Suffix zum Starten des Windows-Programms", 120, 3600,
       288, "fext"},
      {"Label5", "Prefix|Parameter vor dem Dateinamen", 90, 3960, 612, "kprf"},
      {"Label6", "Suffix|Parameter nach dem Dateinamen", 120, 4680, 612, "kext"},
      {"Data", "Data|Daten", 120, 5400, 2295, "Satz"},
      {"CheckLog", "Write all Messages |Alle Meldungen anzeigen", 1080, 8040, 375, "", "FControl",
       5520},
      {"Image2", "|", 810, 120, 990, "", "Form1", 2670},
      {"Label1", "Quorbin|", 1485, 1200, 435, "", "Form1", 1320},
      {"Label2", "|", 840, 1800, 855, "", "Form1", 2775},
      {"Line1", "|", 0, 2880, 0, "", "Form1", 5640},
      {"Command1", "Show Control Window|Show Control Window", 240, 3120, 372, "", "Form1", 2295},
      {"CommandParam", "Show INI-File|Show INI-File", 3000, 3120, 372, "", "Form1", 2295},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.Form) + "." + row.Name);
    const QWidget* const control = Find(row.Form, row.Name);
    const QWidget* const field = *row.Field ? Find(row.Form, row.Field) : control;
    ASSERT_TRUE(control && field);
    EXPECT_EQ(TextOf(control) + "|" + control->toolTip(), row.TextAndTip);
    EXPECT_EQ(control->pos() * 15, QPoint(row.Left, row.Top));
    EXPECT_GE((field->width() + 1) * 15, row.Width);
    EXPECT_GE((field->height() + 1) * 15, row.Height);
    EXPECT_EQ(control->isHidden(), row.Name == std::string_view("Label3"));
    if (field == control) continue;
    EXPECT_EQ(field->toolTip(), row.Top > 3000 ? control->toolTip() : "");  // the parameters only
    EXPECT_EQ(field->pos() * 15, QPoint(1080, row.Top));
    EXPECT_LE((field->width() - 1) * 15, row.Width);
    EXPECT_LE((field->height() - 1) * 15, row.Height);
    EXPECT_EQ(field->isHidden(), control->isHidden());
    EXPECT_TRUE(field->property("readOnly").toBool() && field->focusPolicy() & Qt::TabFocus);
    EXPECT_EQ(field->accessibleName(), TextOf(control));
  }
  EXPECT_EQ(Form("FControl")->windowTitle(), "Quorbin - Control-Window");
  EXPECT_EQ(Form("FControl")->size() * 15, QSize(6930, 8505));
  EXPECT_EQ(Form("Form1")->size() * 15, QSize(5520, 3705));
  EXPECT_EQ(Find<QLabel>("Form1", "Image2")->pixmap().size(), QSize(174, 62));
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

TEST_F(Windows, CentredControlsKeepTheirText) {
  const double width = window.ControlWidth(FormControl::Label2);
  window.SetLeft(FormControl::Label2, (window.OuterWidth() - width) / 2);
  window.SetLabel2("a\r\nb of some length that is wider than its place\r\nc\r\nd");
  const auto* label = Find<QLabel>("Form1", "Label2");
  EXPECT_EQ(label->text(), "a\nb of some length that is wider than its place\nc\nd");
  EXPECT_NEAR(label->geometry().center().x() * 15, window.OuterWidth() / 2, 15);
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
