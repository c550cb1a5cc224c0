#include "WindowText.hpp"

#include <QStringDecoder>
#include <algorithm>
#include <cstddef>

#include "Printable.hpp"

namespace quorbin {

namespace {

constexpr qsizetype LongestLine = 4096;  // characters

QByteArrayView View(std::string_view bytes) {
  return {bytes.data(), static_cast<qsizetype>(bytes.size())};
}

// The characters that a text document takes for the end of a line, and two that it reserves.
bool BreaksLine(QChar c) {
  return c == u'\n' || c == u'\r' || c == QChar::ParagraphSeparator || c == QChar(0xFDD0) ||
         c == QChar(0xFDD1);
}

void AppendWrapped(QString& log, const QString& line) {
  qsizetype length = 0;
  for (const QChar c : line) {
    if (BreaksLine(c)) {
      log += u'\n';
      length = 0;
      continue;
    }
    if (length >= LongestLine && !c.isLowSurrogate()) {
      log += u'\n';
      length = 0;
    }
    log += c;
    ++length;
  }
}

// A sign in the place of what steers. Ends of lines and tabs stay.
QChar Visible(QChar c) {
  if (c == u'\r' || c == u'\n' || c == u'\t' || !Steers(c.unicode())) return c;
  if (c < u' ') return QChar(0x2400 + c.unicode());  // the picture of the control character
  return QChar::ReplacementCharacter;
}

}  // namespace

QString ToText(std::string_view bytes) {
  QStringDecoder utf8(QStringDecoder::Utf8,
                      QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
  QString text = utf8(View(bytes));
  if (utf8.hasError()) text = QString::fromLatin1(View(bytes));
  std::ranges::transform(text, text.begin(), Visible);
  return text;
}

QString ToLog(std::string_view bytes) {
  QString log;
  while (!bytes.empty()) {
    const std::size_t end = bytes.find("\r\n");
    AppendWrapped(log, ToText(bytes.substr(0, end)));
    if (end == std::string_view::npos) break;
    log += u'\n';
    bytes.remove_prefix(end + 2);
  }
  return log;
}

QIcon ProgramIcon(const QString& name) {
  QIcon icon;
  for (const int size : {16, 22, 32, 48, 64}) {
    icon.addFile(QStringLiteral(":/quorbin/%1-%2.png").arg(name).arg(size));
  }
  return icon;
}

}  // namespace quorbin
