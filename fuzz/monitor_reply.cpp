// What vrdb makes of a monitor's replies: to graph, stats, timing and params, one a line.
#include "Input.h"
#include "SavedGraph.h"
#include "StatusText.h"
#include "TextWidth.h"
#include "Top.h"

using fuzz::Require;

namespace {

/** An object, as all that the client of the monitor lets through. */
support::Json Reply(fuzz::Input& input) {
  auto reply = support::Json::parse(input.Line(), nullptr, false);
  return reply.is_object() ? reply : support::Json::object();
}

bool IsHarmless(const std::string& text) {
  return std::none_of(text.begin(), text.end(),
                      [](char c) { return (c >= 0 && c < ' ' && c != '\n' && c != '\t') || c == 0x7F; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const support::Json graph = Reply(input), stats = Reply(input), timing = Reply(input), parameters = Reply(input);

  Require(IsHarmless(vrdb::StatusText(graph, stats)), "A status that a terminal obeys");
  Require(!support::ToText(vrdb::StatusJson(graph, stats)).empty(), "No JSON");
  vrdb::SaveGraph(graph, parameters, "/folder");

  vrdb::TopView view;
  for (const bool again : {false, true}) {
    view.TakeGraph(graph);
    view.TakeStats(stats);
    view.TakeTiming(timing);
    for (const vrdb::Key key : {vrdb::Key::NONE, vrdb::Key::UNFOLD, vrdb::Key::SORT, vrdb::Key::END}) {
      view.Obey(key);
      const auto lines = view.Draw("title", "state", 60, again ? 5 : 40, vrdb::Style(false));
      for (const std::string& line : lines) Require(IsHarmless(line), "A line that a terminal obeys");
    }
  }
  return 0;
}
