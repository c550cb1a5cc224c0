#include "LinkCommands.hpp"

#include <algorithm>
#include <string_view>

#include "Text.hpp"
#include "Words.hpp"

namespace quorbin {

namespace {

constexpr std::string_view StopItem = "stopsrv";
constexpr std::string_view Stop = "stopsrv";
constexpr std::string_view Con = "con ";
constexpr std::string_view Dis = "dis ";
constexpr std::int16_t Accepted = 0;
constexpr std::int16_t Refused = 1;

bool KeywordIs(const std::string& CmdStr, std::string_view keyword) {
  return LCase(std::string_view(CmdStr).substr(0, keyword.size())) == keyword;
}

// The first slot that holds the text gets the new one. The table has 33 slots at all times.
std::int16_t ReplaceSlot(Form1& form, std::string_view held, std::string_view text) {
  const auto slot = std::ranges::find(form.LinkHosts, held);
  if (slot == form.LinkHosts.end()) return Refused;
  slot->assign(text);
  return Accepted;
}

void Execute(Form1& form, const std::string& CmdStr, std::int16_t& Cancel) {
  if (form.ControlMode == 0) {
    Cancel = Refused;
    return;
  }
  if (KeywordIs(CmdStr, Stop)) {
    Cancel = Accepted;
    form.stopsrv = Stopsrv::Stopped;
    // No wait is needed here: the carrier hands the answer to the system before it closes the
    // channel.
    form.Link.SetLinkMode(0);
    form.Window.Close();
    return;
  }
  // An entry keeps the blank in front of it.
  const std::string_view entry =
      std::string_view(CmdStr).substr(std::min<std::size_t>(Con.size() - 1, CmdStr.size()));
  if (KeywordIs(CmdStr, Con)) {
    if (form.LinkHostCount == -1) form.LinkHostCount = 0;
    form.stopsrv = Stopsrv::Con;
    Cancel = ReplaceSlot(form, "", entry);
  } else if (KeywordIs(CmdStr, Dis)) {
    if (form.LinkHostCount < 0) return;
    form.stopsrv = Stopsrv::Dis;
    Cancel = ReplaceSlot(form, entry, "");
  } else {
    Cancel = Refused;
  }
}

void Record(Form1& form, std::string_view verb, const std::string& text, bool accepted) {
  const std::string_view answer = accepted ? "accepted" : "refused";
  const std::string message = "link " + std::string(verb) + " " + text + ": " + std::string(answer);
  form.Audit.Write({.Warning = !accepted,
                    .Message = message,
                    .Fields = {{"LINK_COMMAND", std::string(verb) + " " + text},
                               {"VERDICT", std::string(answer)}}});
}

}  // namespace

void LinkExecute(Form1& form, const std::string& CmdStr, std::int16_t& Cancel) {
  Execute(form, CmdStr, Cancel);
  Record(form, "execute", CmdStr, Cancel == Accepted);
}

std::optional<std::string> LinkRequest(const Form1& form, const std::string& item) {
  if (item != StopItem) return std::nullopt;
  return form.stopsrv;
}

bool LinkNotify(Form1& form, const std::string& item) {
  const bool accepted = item == StopItem && form.ControlMode != 0;
  if (accepted) form.Window.Close();
  Record(form, "notify", item, accepted);
  return accepted;
}

}  // namespace quorbin
