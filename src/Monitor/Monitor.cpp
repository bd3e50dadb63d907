#include "Monitor/Monitor.h"

#include <tlogging.h>

#include <charconv>
#include <new>
#include <optional>
#include <vector>

#include "Chronicle.h"
#include "Log.h"
#include "Monitor/Dump.h"
#include "Monitor/Edits.h"
#include "Monitor/Json.h"
#include "Monitor/Server.h"
#include "Monitor/Survey.h"

// A device may bring a logging library that keeps no lines, with a header of its own.
// NOLINTNEXTLINE(readability-redundant-declaration)
extern "C" size_t _tlogging_recent(char* text, size_t size) __attribute__((weak));

namespace vorn::monitor {
namespace {

using Words = std::vector<std::string>;
using std::chrono::milliseconds;

constexpr std::size_t MOST_LOG = 1 << 16;  // bytes: more than the logging library keeps
constexpr unsigned SHORTEST_PERIOD = 10;   // milliseconds
constexpr unsigned LONGEST_PERIOD = 3'600'000;
constexpr milliseconds LONGEST_HOLD(20);  // until routes have readings ready: one that stands has none
constexpr char EXPECTED[] =
    "expected graph, params [ROUTE [BLOCK]], stats, why ROUTE, timing [on|off], events [once], log, watch MILLISECONDS "
    "(10 to 3600000, 0 for no more), dump [reset] FOLDER, dump off or an edit";

/** Nothing, where a quote is not closed. */
std::optional<Words> WordsOf(const std::string& line) {
  std::vector<Word> split;
  if (!SplitWords(line, split)) return std::nullopt;
  Words words;
  for (const Word& word : split) words.push_back(word.text);
  return words;
}

std::optional<milliseconds> PeriodOf(const std::string& word) {
  unsigned count = 0;
  const auto read = std::from_chars(word.data(), word.data() + word.size(), count);
  if (read.ec != std::errc() || read.ptr != word.data() + word.size()) return std::nullopt;
  if (count > LONGEST_PERIOD || (count > 0 && count < SHORTEST_PERIOD)) return std::nullopt;
  return milliseconds(count);
}

const char* KindName(Chronicle::Kind kind) {
  static constexpr const char* NAMES[] = {"made",    "started", "stopped", "broken", "died",
                                          "deleted", "edited",  "xrun",    "refused"};
  return NAMES[static_cast<std::size_t>(kind)];
}

std::string Describe(const std::vector<Chronicle::Event>& events) {
  List list;
  for (const Chronicle::Event& event : events) {
    const std::chrono::duration<double> time = event.time.time_since_epoch();
    Object object;
    object.Add("number", event.number).Add("time", time.count()).Add("kind", KindName(event.kind));
    if (!event.route.empty()) object.Add("route", event.route);
    if (!event.block.empty()) object.Add("block", event.block);
    list.Add(object.Add("text", event.text).Text());
  }
  return Begin("events").Add("events", list).Text();
}

std::string DescribeLog() {
  std::string text;
  if (_tlogging_recent) {
    text.resize(MOST_LOG);
    text.resize(_tlogging_recent(text.data(), text.size()));
  }
  std::istringstream stream(text);
  List lines;
  for (std::string line; std::getline(stream, line);) lines.Add(Quoted(line));
  return Begin("log").Add("available", _tlogging_recent != nullptr).Add("lines", lines).Text();
}

}  // namespace

/** Reads a line, and has it answered by whose affair it is. */
class Monitor::Speaker final : public Server::Speaker {
 public:
  explicit Speaker(Framework newFramework) : framework(std::move(newFramework)) {}

  Server::Reply Answer(const std::string& line, Server::Clock::duration held) override {
    if (Edits::Takes(line)) return {"", {}, {}, true};
    const auto split = WordsOf(line);
    if (!split) return {monitor::Failure("", "a quote is not closed").Text()};
    if (split->empty()) return {monitor::Failure("", EXPECTED).Text()};
    const Words& words = *split;
    const bool showsReadings = words[0] == "params" || words[0] == "stats" || words[0] == "watch";
    Server::Reply reply;
    Look([&](const Survey::View& view) {
      if (showsReadings && held < LONGEST_HOLD && Survey::AwaitsReadings(view, held == held.zero())) {
        reply.comesSoon = true;
      } else {
        reply = AnswerLook(words, view);
      }
    });
    return reply;
  }

  std::string CarryOut(const std::string& line) override {
    if (!Edits::Takes(line)) return CarryOutDump(WordsOf(line).value_or(Words()), framework).Text();
    std::string reply = edits.Answer(line);
    framework.released();
    return reply;
  }
  std::string Failure(const std::string& why) override { return monitor::Failure("", why).Text(); }

  void Tick() override {
    Look([&](const Survey::View& view) { survey.Tick(view); });
  }

  std::string News(unsigned long& number) override {
    const auto events = Chronicle::After(number);
    if (events.empty()) return {};
    number = events.back().number;
    return Describe(events);
  }

  Server server{*this};

 private:
  /** Shows what there is, for an instant. */
  template <class Use>
  void Look(Use use) {
    {
      const Registry registry = framework.registry();
      use(Survey::View{registry, Survey::Clock::now()});
    }
    framework.released();
  }

  Server::Reply AnswerLook(const Words& words, const Survey::View& view) {
    const std::string& request = words[0];
    const Words rest(words.begin() + 1, words.end());
    if (request == "graph" && rest.empty()) return {survey.Graph(view, framework.hasConsole()).Text()};
    if (request == "params" && rest.size() <= 2) return {survey.Params(view, rest).Text()};
    if (request == "stats" && rest.empty()) return {survey.Stats(view).Text()};
    if (request == "why" && rest.size() == 1) return {survey.Why(view, rest[0]).Text()};
    if (request == "log" && rest.empty()) return {DescribeLog()};
    if (request == "timing" && rest.size() <= 1) return AnswerTiming(rest, view);
    if (request == "events" && rest.size() <= 1) return AnswerEvents(rest);
    if (request == "dump" && !rest.empty()) return {"", {}, {}, true};
    if (request == "watch" && rest.size() == 1) return AnswerWatch(rest[0], view);
    return {monitor::Failure(request, EXPECTED).Text()};
  }

  Server::Reply AnswerTiming(const Words& rest, const Survey::View& view) {
    const bool isSwitch = !rest.empty();
    if (isSwitch && rest[0] != "on" && rest[0] != "off") {
      return {monitor::Failure("timing", "expected on or off, got '" + rest[0] + "'").Text()};
    }
    if (isSwitch) survey.SwitchTiming(view, rest[0] == "on");
    return {survey.Timing(view).Text()};
  }

  static Server::Reply AnswerEvents(const Words& rest) {
    const bool isOnce = !rest.empty();
    if (isOnce && rest[0] != "once") {
      return {monitor::Failure("events", "expected once or nothing, got '" + rest[0] + "'").Text()};
    }
    const auto events = Chronicle::After(0);
    Server::Reply reply{Describe(events)};
    if (!isOnce) reply.newsAfter = events.empty() ? 0 : events.back().number;
    return reply;
  }

  Server::Reply AnswerWatch(const std::string& word, const Survey::View& view) {
    const auto period = PeriodOf(word);
    if (!period)
      return {monitor::Failure("watch", "expected 0, or 10 to 3600000 milliseconds, got '" + word + "'").Text()};
    return {survey.Stats(view).Text(), period};
  }

  std::shared_ptr<RouteImpl> FindRoute(const std::string& name) const {
    for (const auto& route : framework.registry().routes) {
      if (route->Name() == name) return route;
    }
    return nullptr;
  }

  const Framework framework;
  Survey survey;
  const Edits edits{{[this](const std::string& name) { return FindRoute(name); }, framework.command}};
};

Monitor::Monitor(Framework framework) : speaker(std::make_unique<Speaker>(std::move(framework))) {}

Monitor::~Monitor() {
  Stop();
  Finish();
}

void Monitor::Start() try {
  Chronicle::Listen([this] { speaker->server.Ring(); });
  isListening = true;
  speaker->server.Start();
} catch (const std::bad_alloc&) {  // all else works without
  LOG_E("No memory for the monitor");
}

void Monitor::Stop() {
  if (isListening) Chronicle::Listen(nullptr);
  isListening = false;
  speaker->server.Stop();
}

void Monitor::Finish() { speaker->server.Finish(); }

}  // namespace vorn::monitor
