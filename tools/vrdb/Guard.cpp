#include "Guard.h"

#include <algorithm>
#include <set>

#include "Names.h"
#include "support/Format.h"

namespace vrdb {
namespace {

using support::ListOf;
using support::Member;
using support::Named;
using support::TextOf;

struct Ends {
  bool in = false;
  bool out = false;
};

// A block is complete when it has what it needs; see the states of a route.
std::string Missing(const Json& block, Ends ends) {
  const bool needsInput = !support::IsTrue(block, "first") && !ends.in;
  const bool needsOutput = !support::IsTrue(block, "last") && !ends.out;
  if (!needsInput && !needsOutput) return {};
  return Shown(block, "name") + " would have no " + (needsInput ? "input" : "output");
}

Ends EndsOf(const Json& route, const std::string& block, const std::set<std::string>& without) {
  Ends ends;
  for (const Json& link : ListOf(route, "links")) {
    if (without.contains(TextOf(link, "name"))) continue;
    ends.in = ends.in || TextOf(Member(link, "to"), "block") == block;
    ends.out = ends.out || TextOf(Member(link, "from"), "block") == block;
  }
  return ends;
}

// The instance, if it is a link; the links of the block otherwise.
std::set<std::string> LinksThatGo(const Json& route, const std::string& instance) {
  std::set<std::string> links;
  for (const Json& link : ListOf(route, "links")) {
    const bool goes = TextOf(link, "name") == instance || TextOf(Member(link, "to"), "block") == instance ||
                      TextOf(Member(link, "from"), "block") == instance;
    if (goes) links.insert(TextOf(link, "name"));
  }
  return links;
}

std::string WhatDeletionBreaks(const Json& route, const std::string& instance) {
  const std::set<std::string> gone = LinksThatGo(route, instance);
  bool hasFirst = false;
  for (const Json& block : ListOf(route, "blocks")) {
    const std::string name = TextOf(block, "name");
    if (name == instance) continue;
    if (std::string missing = Missing(block, EndsOf(route, name, gone)); !missing.empty()) return missing;
    hasFirst = hasFirst || support::IsTrue(block, "first");
  }
  return hasFirst ? "" : "there would be no first block";
}

bool IsInstanceOf(const Json& route, const std::string& name) {
  return Named(ListOf(route, "blocks"), name).is_object() || Named(ListOf(route, "links"), name).is_object();
}

}  // namespace

bool Stands(const Json& why) {
  const std::string word = TextOf(why, "why");
  return word == "waits" || word == "sleeps" || word == "busy";
}

std::string WhySentence(const Json& why) {
  if (std::string text = Shown(why, "text"); !text.empty()) return text;
  const std::string route = Shown(why, "route");
  std::string sentence = (route.empty() ? Shown(why, "name") : route) + " " + Shown(why, "why");
  const std::string block = Shown(why, "block");
  if (!block.empty()) sentence += (Stands(why) ? " in " : " at ") + block;
  if (const auto since = support::NumberOf(why, "since")) sentence += support::Format(", for %.1f s", *since);
  const std::string reason = Shown(why, "reason");
  return sentence + (reason.empty() ? "" : ": " + reason);
}

std::string WhatBreaks(const Json& graph, const Words& words) {
  if (words.size() < 3) return {};
  const Json& route = RouteOf(graph, words[1]);
  if (TextOf(route, "status") != "running") return {};
  if (words[0] == "delete" && IsInstanceOf(route, words[2])) return WhatDeletionBreaks(route, words[2]);
  if (words[0] != "newblock" || words.size() < 5) return {};
  const Json block = {{"name", "the new block"}, {"first", words[3] == "true"}, {"last", words[4] == "true"}};
  return Missing(block, {});
}

std::string BetterEdit(const Json& graph, const Words& words) {
  if (words[0] == "newblock") return "'insert' and 'tap' put it into the running route in one step, as 'edit' does";
  const bool isBlock = BlockOf(graph, words[1], words[2]).is_object();
  return (isBlock ? "'remove " + words[1] + " " + words[2] + "' takes it out and joins its neighbours; " : "") +
         "'edit { ... }' makes several changes in one step";
}

}  // namespace vrdb
