// The parts of the platform that can be tested without the service.

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "CommandLine.hpp"
#include "Fd.hpp"
#include "FieldTexts.hpp"
#include "ForwardConfirmedResolver.hpp"
#include "PollLoop.hpp"
#include "Printable.hpp"
#include "PrivateProfile.hpp"

namespace quorbin {
namespace {

TEST(CommandLine, Splits) {
  const std::pair<std::string, std::vector<std::string>> rows[] = {
      {"a  b\tc ", {"a", "b", "c"}},
      {R"("/a b/c" "x y"z d"e f")", {"/a b/c", "x yz", "de f"}},
      {R"(a \"b\" c:\d\\ "e\"f")", {"a", "\"b\"", R"(c:\d\\)", "e\"f"}},
      {R"(a "" b)", {"a", "", "b"}},
      {R"(a "b c)", {"a", "b c"}},
      {R"(a\)", {R"(a\)"}},
      {"$(x) `y`; z|w", {"$(x)", "`y`;", "z|w"}},
      {" \t", {}},
  };
  for (const auto& [line, arguments] : rows) EXPECT_EQ(SplitCommandLine(line), arguments) << line;
}

TEST(PrivateProfile, FindsSettings) {
  const std::string file =
      "\xEF\xBB\xBF[ Hosts ] ; peers\r\n"
      "; 10.0.0.1=comment\n"
      "  # 10.0.0.1=comment\n"
      " 10.0.0.1 \t=  *allow \t\r\n"
      "10.0.0.1=second\n"
      "::1=\"quoted\"\n"
      "Empty=\n"
      "no value\n"
      "[Other\n"
      "Port=1\n"
      "[HOSTS]\n"
      "late=a=b\n"
      "=nameless\n"
      "last=x";
  const struct {
    std::string_view Section, Key, Value;
  } rows[] = {
      {"hosts", "10.0.0.1", "*allow"}, {"Hosts", "::1", "\"quoted\""},    {"Hosts", "EMPTY", ""},
      {"Hosts", "no value", "(none)"}, {"Hosts", "late", "a=b"},          {"Hosts", "", "(none)"},
      {"Hosts", "last", "x"},          {"Hosts", "Port", "(none)"},       {"Other", "port", "1"},
      {"Nowhere", "last", "(none)"},   {"Hosts", "; 10.0.0.1", "(none)"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(FindSetting(file, row.Section, row.Key).value_or("(none)"), row.Value) << row.Key;
  }
}

TEST(Printable, EscapesWhatSteersATerminal) {
  const std::pair<std::string, std::string> rows[] = {
      {"plain \xC3\xA4 \xE2\x82\xAC \xF0\x9F\x98\x80",
       "plain \xC3\xA4 \xE2\x82\xAC \xF0\x9F\x98\x80"},
      {"\r\n\t\\\x1B\x7F", R"(\r\n\t\\\x1B\x7F)"},
      {std::string("\0", 1), R"(\x00)"},
      {"\xC2\x9B"
       "2J",
       R"(\xC2\x9B2J)"},                                            // a control character in UTF-8
      {"\xE4\xC0\xAF\xED\xA0\x80", R"(\xE4\xC0\xAF\xED\xA0\x80)"},  // not well-formed
      {"\xF4\x90\x80\x80\xE2\x82", R"(\xF4\x90\x80\x80\xE2\x82)"},
  };
  for (const auto& [bytes, text] : rows) EXPECT_EQ(Printable(bytes), text);
}

TEST(FieldTexts, SatzKeepsItsNewestLines) {
  FieldTexts texts;
  const std::string line(999998, 'x');
  std::size_t dropped = 0;
  for (int i = 0; i < 16; ++i) dropped += texts.AppendLine(line);
  EXPECT_EQ(dropped, 0U);
  dropped = texts.AppendLine(line);  // beyond 16 MiB
  EXPECT_EQ(dropped, 9000000U);
  EXPECT_EQ(texts.Text(Field::Satz).size(), 8000000U);
  EXPECT_EQ(texts.AppendLine(std::string(FieldTexts::SatzLimit, 'y')), 8000000U + (16U << 20U) + 2);
  EXPECT_EQ(texts.Text(Field::Satz), "");
}

TEST(PollLoop, CallbacksMayUnwatchThemselvesAndOthers) {
  PollLoop loop;
  int ends[2] = {};
  ASSERT_EQ(::pipe(ends), 0);
  const Fd reader(ends[0]);
  const Fd writer(ends[1]);
  ASSERT_EQ(::write(writer.Get(), "x", 1), 1);
  std::string order;
  loop.Watch(reader.Get(), EventLoop::Readable, [&](unsigned) {
    loop.Unwatch(reader.Get());
    loop.Unwatch(writer.Get());
    loop.Defer([&] {
      order += "deferred ";
      loop.Quit();
    });
    order += "reader ";
  });
  loop.Watch(writer.Get(), EventLoop::Writable, [&](unsigned) { order += "writer "; });
  loop.Run();
  EXPECT_EQ(order, "reader deferred ");
}

TEST(Resolver, OnlyConfirmedNamesCount) {
  ForwardConfirmedResolver resolver;
  EXPECT_EQ(resolver.ResolverName("127.0.0.1"), "localhost");
  EXPECT_EQ(resolver.ResolverName("no address"), "");
}

}  // namespace
}  // namespace quorbin
