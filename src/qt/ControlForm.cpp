#include "ControlForm.hpp"

#include <QCloseEvent>
#include <QLabel>
#include <QScreen>
#include <QScrollBar>
#include <QTextBlock>
#include <iterator>
#include <utility>

#include "Controls.hpp"

namespace quorbin {

namespace {

constexpr qsizetype LongestField = 32767;  // characters
constexpr int TitleBar = 40;               // pixels that a window manager may add above the window

enum class Kind { OneLine, SeveralLines, Log };
enum class Tips { Label, Both };

// A field with its label; all fields are one below the other. Places in twips.
struct FieldRow {
  Field Shown;
  int LabelLeft;
  const char* LabelName;
  const char* Caption;
  const char* Tip;
  Tips TipOn;
  int Top;
  int Height;
  Kind Lines;
  bool Visible;
};

constexpr int FieldLeft = 1080;
constexpr int FieldWidth = 5500;
constexpr int LabelGap = 60;
constexpr int LabelHeight = 288;

constexpr FieldRow Rows[] = {
    {Field::aktion, 120, "Label1(3)", "Action", "aktuelle Aktion", Tips::Label, 120, 288,
     Kind::OneLine, true},
    {Field::partner, 120, "Label1(2)", "Partner", "Name des Servers, der die Datei gesendet hat",
     Tips::Label, 480, 288, Kind::OneLine, true},
    {Field::dateiname, 90, "Label1(0)", "Filename", "Lokaler Dateiname", Tips::Label, 840, 288,
     Kind::OneLine, true},
    {Field::kdo, 120, "Label1(1)", "Command",
     "Kommando für den Programm-Aufruf zur Anzeige/Bearbeitung der Datei", Tips::Label, 1200, 1008,
     Kind::SeveralLines, true},
    {Field::resu, 120, "Label1(4)", "Result", "Ergebnis", Tips::Label, 2280, 288,
     Kind::SeveralLines, true},
    {Field::ftp, 120, "Label3", "Filetype", "Datei-Typ \"binary\" oder \"text\"", Tips::Both, 3285,
     240, Kind::OneLine, false},
    {Field::fext, 120, "Label4", "Extension",
     "maßgeblicher Datei-Suffix zum Starten des Windows-Programms", Tips::Both, 3600, 288,
     Kind::OneLine, true},
    {Field::kprf, 90, "Label5", "Prefix", "Parameter vor dem Dateinamen", Tips::Both, 3960, 612,
     Kind::SeveralLines, true},
    {Field::kext, 120, "Label6", "Suffix", "Parameter nach dem Dateinamen", Tips::Both, 4680, 612,
     Kind::SeveralLines, true},
    {Field::Satz, 120, "Data", "Data", "Daten", Tips::Both, 5400, 2295, Kind::Log, true},
};
static_assert(std::size(Rows) == FieldNames.size());

// One pixel of frame: the fields of one line are too low for the frames of most styles.
constexpr const char* FieldStyle =
    "QLineEdit, QPlainTextEdit { border: 1px solid palette(mid); background: palette(base); }"
    "QLineEdit { padding: 0 1px; }"
    "QPlainTextEdit { padding-left: 2px; }"
    "QLineEdit:focus, QPlainTextEdit:focus { border-color: palette(highlight); }";

QLineEdit* MakeLine(QWidget& form) {
  auto* field = new QLineEdit(&form);
  field->setReadOnly(true);
  field->setStyleSheet(QString::fromLatin1(FieldStyle));
  return field;
}

QPlainTextEdit* MakeLines(QWidget& form, Kind kind) {
  auto* field = new QPlainTextEdit(&form);
  field->setReadOnly(true);
  field->setStyleSheet(QString::fromLatin1(FieldStyle));
  field->setUndoRedoEnabled(false);
  field->setTabChangesFocus(true);
  field->document()->setDocumentMargin(1);
  field->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  field->setVerticalScrollBarPolicy(kind == Kind::Log ? Qt::ScrollBarAlwaysOn
                                                      : Qt::ScrollBarAlwaysOff);
  field->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  return field;
}

}  // namespace

ControlForm::ControlForm(Actions actions) : actions_(std::move(actions)) {
  setObjectName(QStringLiteral("FControl"));
  setWindowTitle(QStringLiteral("Quorbin - Control-Window"));
  setWindowIcon(ProgramIcon(QStringLiteral("control")));
  auto* const controls = new QWidget;
  controls->setFixedSize(Pixels(6930), Pixels(8505));
  setWidget(controls);
  controls->setFont(FormFont());
  setFrameShape(QFrame::NoFrame);
  setFocusPolicy(Qt::NoFocus);  // the controls have it, and the view follows it
  resize(sizeHint());
  setMaximumSize(size().expandedTo(controls->size()));

  for (const FieldRow& row : Rows) {
    const auto i = static_cast<std::size_t>(row.Shown);
    const quorbin::Box box{FieldLeft, row.Top, FieldWidth, row.Height};
    QWidget* field = nullptr;
    if (row.Lines == Kind::OneLine) {
      field = line_[i] = Place(MakeLine(*controls), FieldNames[i].data(), box);
    } else {
      field = lines_[i] = Place(MakeLines(*controls, row.Lines), FieldNames[i].data(), box);
    }
    auto* label = new QLabel(QString::fromLatin1(row.Caption), controls);
    Place(label, row.LabelName,
          {row.LabelLeft, row.Top, FieldLeft - LabelGap - row.LabelLeft, LabelHeight});
    label->setBuddy(field);
    label->setToolTip(QString::fromUtf8(row.Tip));
    if (row.TipOn == Tips::Both) field->setToolTip(label->toolTip());
    field->setAccessibleName(label->text());
    field->setVisible(row.Visible);
    label->setVisible(row.Visible);
  }

  PlaceLine(*controls, 6960, 2895);
  auto* heading = new QLabel(QStringLiteral("received params"), controls);
  heading->setFont(SizedFont(QFont(), 13, true));  // 9.75 pt
  heading->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
  Place(heading, "Label2", {1110, 3105, 5520, 495});

  checkLog_ = new QCheckBox(QStringLiteral("Write all Messages "), controls);
  checkLog_->setToolTip(QStringLiteral("Alle Meldungen anzeigen"));
  Place(checkLog_, "CheckLog", {1080, 8040, 5520, 375});
  connect(checkLog_, &QCheckBox::toggled, this, [this](bool ticked) {
    if (actions_.CheckLogClick) actions_.CheckLogClick(ticked);
  });
}

QSize ControlForm::sizeHint() const {
  // The window manager's frame needs some of the screen as well.
  const QSize free = screen()->availableSize() - QSize(TitleBar / 4, TitleBar);
  QSize size = widget()->size().boundedTo(free);
  // A scroll bar must not make the contents narrower.
  if (size.height() < widget()->height()) size.rwidth() += verticalScrollBar()->sizeHint().width();
  return size.boundedTo(free);
}

void ControlForm::SetText(Field field, std::string_view text) {
  const auto i = static_cast<std::size_t>(field);
  if (field == Field::Satz) {
    lines_[i]->clear();
    AppendToSatz(text);
  } else if (line_[i] != nullptr) {
    line_[i]->setText(ToText(text).left(LongestField));
    line_[i]->setCursorPosition(0);
  } else {
    lines_[i]->setPlainText(ToText(text).left(LongestField));
  }
}

void ControlForm::AppendToSatz(std::string_view bytes) {
  QTextCursor end(lines_[static_cast<std::size_t>(Field::Satz)]->document());
  end.movePosition(QTextCursor::End);
  end.insertText(ToLog(bytes));
}

void ControlForm::KeepOfSatz(std::string_view bytes) {
  QTextDocument& log = *lines_[static_cast<std::size_t>(Field::Satz)]->document();
  const auto kept = static_cast<int>(ToLog(bytes).count(u'\n'));
  const int surplus = log.blockCount() - 1 - kept;  // the last block is the empty one at the end
  if (surplus <= 0) return;
  QTextCursor oldest(&log);
  oldest.setPosition(log.findBlockByNumber(surplus).position(), QTextCursor::KeepAnchor);
  oldest.removeSelectedText();
}

void ControlForm::Clear() {
  for (std::size_t i = 0; i < FieldNames.size(); ++i) SetText(static_cast<Field>(i), {});
  const QSignalBlocker unticked(checkLog_);  // only the box: what is logged stays
  checkLog_->setChecked(false);
}

void ControlForm::closeEvent(QCloseEvent* event) {
  event->accept();
  actions_.Closed();
}

}  // namespace quorbin
