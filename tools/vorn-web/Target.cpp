#include "Target.h"

#include <algorithm>
#include <vector>

#include "support/MonitorClient.h"
#include "support/Printable.h"

namespace vorn_web {
namespace {

constexpr std::size_t LONGEST_NAME = 15;  // the kernel keeps no more of a process's name

bool IsNumber(const std::string& text) { return !text.empty() && text.find_first_not_of("0123456789") == text.npos; }

std::vector<pid_t> WithName(std::vector<pid_t> pids, const std::string& name) {
  std::erase_if(pids, [&](pid_t pid) { return support::ProcessName(pid) != name.substr(0, LONGEST_NAME); });
  return pids;
}

bool HasConsole(pid_t pid) {
  constexpr std::chrono::seconds LONGEST_ANSWER{2};
  support::MonitorClient monitor(pid);
  const auto reply = monitor.Ask({"graph"}, {LONGEST_ANSWER, {}});
  return support::IsTrue(support::Member(reply.json, "process"), "console");
}

std::string ListOf(const std::vector<pid_t>& pids) {
  std::string list;
  for (const pid_t pid : pids) {
    list += (list.empty() ? "" : ", ") + support::ProcessName(pid) + " (" + std::to_string(pid) + ')';
  }
  return list;
}

}  // namespace

Target::Choice Target::ChooseFirst(const std::string& name) const {
  std::vector<pid_t> pids = support::FindMonitors();
  if (IsNumber(name)) {
    const auto found = std::ranges::find(pids, std::stol(name.substr(0, LONGEST_NAME)));
    if (found == pids.end()) return {0, true, "there is no process " + name + " that runs Vorn here"};
    return {*found, false, ListOf({*found})};
  }
  if (!name.empty()) pids = WithName(pids, name);
  if (pids.size() > 1 && name.empty()) {
    const auto found = std::ranges::find_if(pids, HasConsole);
    if (found != pids.end()) pids = {*found};
  }
  if (pids.size() > 1) return {0, true, "there are several; say which with -p: " + ListOf(pids)};
  if (!pids.empty()) return {pids[0], false, ListOf(pids)};
  return {0, false,
          "waiting for a process that runs Vorn" + (name.empty() ? "" : ", called " + support::Printable(name))};
}

Target::Choice Target::Choose() {
  Choice choice;
  if (foundName.empty()) {
    choice = ChooseFirst(wanted);
  } else if (const auto pids = WithName(support::FindMonitors(), foundName); pids.empty()) {
    choice.text = "waiting for another " + foundName;
  } else {
    choice = {pids.back(), false, ListOf({pids.back()})};
  }
  if (choice.pid != 0) foundName = support::ProcessName(choice.pid);
  return choice;
}

}  // namespace vorn_web
