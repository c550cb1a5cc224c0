#include "ControlForm.hpp"

#include <QCloseEvent>
#include <QLabel>
#include <QTextBlock>
#include <utility>

#include "Controls.hpp"

namespace quorbin {

namespace {

constexpr qsizetype LongestField = 32767;  // characters

enum class Kind { OneLine, SeveralLines, Log };
enum class Tips { Label, Both };

// A field with its label; all fields stand one below the other. Places in twips.
struct FieldRow {
  const char* LabelName;
  int LabelLeft;
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

// In the order of Field.
constexpr std::array<FieldRow, FieldNames.size()> Rows{{
    {"Label1(3)", 120, "Action", "aktuelle Aktion", Tips::Label, 120, 288, Kind::OneLine, true},
    {"Label1(2)", 120, "Partner", "Name des Servers, der die Datei gesendet hat", Tips::Label, 480,
     288, Kind::OneLine, true},
    {"Label1(0)", 90, "Filename", "Lokaler Dateiname", Tips::Label, 840, 288, Kind::OneLine, true},
    {"Label1(1)", 120, "Command",
     "Kommando für den Programm-Aufruf zur Anzeige/Bearbeitung der Datei", Tips::Label, 1200, 1008,
     Kind::SeveralLines, true},
    {"Label1(4)", 120, "Result", "Ergebnis", Tips::Label, 2280, 288, Kind::SeveralLines, true},
    {"Label3", 120, "Filetype", "Datei-Typ \"binary\" oder \"text\"", Tips::Both, 3285, 240,
     Kind::OneLine, false},
    {"Label4", 120, "Extension", "maßgeblicher Datei-Suffix zum Starten des Windows-Programms",
     Tips::Both, 3600, 288, Kind::OneLine, true},
    {"Label5", 90, "Prefix", "Parameter vor dem Dateinamen", Tips::Both, 3960, 612,
     Kind::SeveralLines, true},
    {"Label6", 120, "Suffix", "Parameter nach dem Dateinamen", Tips::Both, 4680, 612,
     Kind::SeveralLines, true},
    {"Data", 120, "Data", "Daten", Tips::Both, 5400, 2295, Kind::Log, true},
}};

// One pixel of frame: the fields of one line are too low for the frames of most styles.
constexpr const char* FieldStyle =
    "QLineEdit, QPlainTextEdit { border: 1px solid palette(mid); background: palette(base); }"
    "QLineEdit { padding: 0 1px; }"
    "QPlainTextEdit { padding-left: 2px; }"
    "QLineEdit:focus, QPlainTextEdit:focus { border-color: palette(highlight); }";

QLineEdit* MakeLine(QWidget& form) {
  auto* field = new QLineEdit(&form);
  field->setReadOnly(true);
  return field;
}

QPlainTextEdit* MakeLines(QWidget& form, Kind kind) {
  auto* field = new QPlainTextEdit(&form);
  field->setReadOnly(true);
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
  setFont(FormFont());
  setStyleSheet(QString::fromLatin1(FieldStyle));
  setFixedSize(Pixels(6930), Pixels(8505));

  for (std::size_t i = 0; i < Rows.size(); ++i) {
    const FieldRow& row = Rows[i];
    const Box box{FieldLeft, row.Top, FieldWidth, row.Height};
    QWidget* field = nullptr;
    if (row.Lines == Kind::OneLine) {
      field = line_[i] = Place(MakeLine(*this), FieldNames[i].data(), box);
    } else {
      field = lines_[i] = Place(MakeLines(*this, row.Lines), FieldNames[i].data(), box);
    }
    auto* label = new QLabel(QString::fromLatin1(row.Caption), this);
    Place(label, row.LabelName,
          {row.LabelLeft, row.Top, FieldLeft - LabelGap - row.LabelLeft, LabelHeight});
    label->setBuddy(field);
    label->setToolTip(QString::fromUtf8(row.Tip));
    if (row.TipOn == Tips::Both) field->setToolTip(label->toolTip());
    field->setAccessibleName(label->text());
    field->setVisible(row.Visible);
    label->setVisible(row.Visible);
  }

  PlaceLine(*this, 6960, 2895);
  auto* heading = new QLabel(QStringLiteral("received params"), this);
  heading->setFont(SizedFont(QFont(), 13, true));  // 9.75 pt
  heading->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
  Place(heading, "Label2", {1110, 3105, 5520, 495});

  checkLog_ = new QCheckBox(QStringLiteral("Write all Messages "), this);
  checkLog_->setToolTip(QStringLiteral("Alle Meldungen anzeigen"));
  Place(checkLog_, "CheckLog", {1080, 8040, 5520, 375});
  connect(checkLog_, &QCheckBox::clicked, this, [this](bool ticked) {
    if (actions_.CheckLogClick) actions_.CheckLogClick(ticked);
  });
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
  checkLog_->setChecked(false);
}

void ControlForm::closeEvent(QCloseEvent* event) {
  event->accept();
  actions_.Closed();
}

}  // namespace quorbin
