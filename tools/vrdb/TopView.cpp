#include <algorithm>
#include <cmath>
#include <sstream>

#include "Guard.h"
#include "Names.h"
#include "TextWidth.h"
#include "Top.h"
#include "support/Format.h"
#include "support/ReadingText.h"

namespace vrdb {
namespace {

using support::Format;
using support::ListOf;
using support::Member;
using support::NumberOf;
using support::TextOf;

constexpr std::size_t LEAST_ROOM_FOR_WHY = 50;
constexpr std::size_t MOST_WHY_LINES = 3;
constexpr std::size_t WIDE_BLOCK = 28;  // ends where the times of routes begin
constexpr std::size_t NARROW_BLOCK = 22;

const char* const ORDERS[] = {"trouble first", "by name", "by processor", "by frames/s", "by load", "by xruns"};

const char* const HELP[] = {"up down pgup pgdn home end   move",
                            "left right                   fold, unfold a route",
                            "f                            fold or unfold all",
                            "s r                          sort; the other way round",
                            "t                            measure times, or stop it",
                            "space                        pause",
                            "+ -                          interval",
                            "q                            end"};

// "fifo 60", or nothing for a thread like any other
std::string Policy(const Json& route) {
  const std::string policy = Shown(route, "policy");
  return policy.empty() || policy == "other" ? "-" : policy + " " + NumberText(route, "realTimePriority", 0);
}

std::string State(const Json& route) {
  const std::string why = Shown(route, "why");
  return why.empty() ? Shown(route, "status") : why;
}

// What there is to say of a route that does not simply run, or was not simply stopped.
std::string Trouble(const Json& route) {
  const std::string why = TextOf(route, "why");
  return why.empty() || why == "runs" ? "" : Shown(route, "text");
}

std::vector<std::string> Wrapped(const std::string& sentence, std::size_t width, std::size_t most) {
  std::vector<std::string> lines = {""};
  std::istringstream words(sentence);
  for (std::string word; words >> word;) {
    const bool isFull = !lines.back().empty() && Width(lines.back()) + 1 + Width(word) > width;
    if (isFull && lines.size() < most) lines.emplace_back();
    lines.back() += (lines.back().empty() ? "" : " ") + word;
  }
  return lines;
}

}  // namespace

struct TopView::Row {
  std::string text;
  std::string route;  // empty: of none
};

/** One line, cut at the width of the screen. A selected one has one look all over. */
class Line {
 public:
  Line(std::size_t columns, const Style& looks, bool selected) : left(columns), style(looks), isSelected(selected) {}

  Line& Add(std::string_view part, Look look = Look::PLAIN) {
    const auto fitting = Fitting(part, left);
    text += isSelected ? std::string(fitting) : style(look, fitting);
    return *this;
  }
  /** In a field of at least `width`, and a blank behind it. */
  Line& Left(const std::string& part, std::size_t width, Look look = Look::PLAIN) {
    return Add(part + Blanks(part, width), look).Add(" ");
  }
  Line& Right(const std::string& part, std::size_t width, Look look = Look::PLAIN) {
    return Add(Blanks(part, width) + part, look).Add(" ");
  }
  std::size_t Room() const { return left; }
  std::string Take() { return isSelected ? style(Look::REVERSE, text + std::string(left, ' ')) : text; }

 private:
  static std::string Blanks(const std::string& part, std::size_t width) {
    return std::string(width - std::min(Width(part), width), ' ');
  }

  std::size_t left;
  const Style& style;
  const bool isSelected;
  std::string text;
};

/** What all rows are drawn with. */
class TopView::Painter {
 public:
  Painter(std::size_t width, const Style& looks, std::size_t at) : columns(width), style(looks), cursor(at) {}

  /** The next row of the body. */
  Line Begin(const std::vector<Row>& rows) const { return {columns, style, rows.size() == cursor}; }

  const std::size_t columns;
  const Style& style;

 private:
  const std::size_t cursor;
};

namespace {

/** A column of routes. Those of a high rank are left out first where the screen is narrow. */
struct Column {
  const char* title;
  std::size_t width;
  int rank;
};

enum ColumnId { ROUTE, STATE, PROCESSOR, RATE, CYCLE, LOAD, WORST, XRUNS, ERRORS, FRAMES, POLICY, COLUMNS };

constexpr Column TABLE[COLUMNS] = {{"ROUTE", 8, 0},  {"STATE", 7, 0},   {"CPU%", 5, 1},  {"FRAMES/S", 9, 2},
                                   {"CYCLE", 8, 5},  {"LOAD%", 6, 4},   {"WORST", 8, 6}, {"XRUNS", 6, 3},
                                   {"ERRORS", 7, 7}, {"FRAMES", 12, 8}, {"SCHED", 8, 9}};

bool IsShown(ColumnId id, std::size_t columns) {
  std::size_t width = 0;
  for (const Column& column : TABLE) {
    if (column.rank <= TABLE[id].rank) width += column.width + 1;
  }
  return width <= columns + 1;
}

// One that has no value yet is left out.
void AddReading(Line& line, const Json& reading) {
  const Json& value = Member(reading, "value");
  const std::string text = value.is_number() ? value.dump() : Shown(reading, "value");
  if (text.empty()) return;
  const std::string unit = Shown(reading, "unit");
  line.Add(" " + Shown(reading, "name") + " ", Look::DIM).Add(support::ReadingText(text, unit));
  line.Add((unit.empty() ? "" : " " + unit) + " ");
}

std::string Head(std::size_t columns, const Style& style) {
  Line line(columns, style, false);
  for (int i = 0; i < COLUMNS; ++i) {
    const auto id = static_cast<ColumnId>(i);
    if (!IsShown(id, columns)) continue;
    id <= STATE ? line.Left(TABLE[id].title, TABLE[id].width, Look::DIM)
                : line.Right(TABLE[id].title, TABLE[id].width, Look::DIM);
  }
  if (line.Room() >= LEAST_ROOM_FOR_WHY) line.Add(" WHY", Look::DIM);
  return line.Take();
}

}  // namespace

void TopView::TakeStats(Json reply) {
  before.clear();
  for (const Json& route : ListOf(stats, "routes")) {
    for (const char* counter : {"errorFrames", "xruns"}) {
      if (const auto count = NumberOf(route, counter)) before[TextOf(route, "name") + " " + counter] = *count;
    }
  }
  stats = std::move(reply);
  problem.clear();
}

void TopView::Clear() {
  graph = stats = timing = Json();
  before.clear();
  folded.clear();
  isFoldingDecided = false;
}

bool TopView::HasGrown(const Json& route, const char* counter) const {
  const auto old = before.find(TextOf(route, "name") + " " + counter);
  return old != before.end() && NumberOf(route, counter).value_or(0) > old->second;
}

bool TopView::IsMeasuring() const { return support::IsTrue(timing, "on"); }

/** Where `timing` was not asked, the stats may have the cycle. */
const Json& TopView::CycleOf(const Json& route) const {
  const Json& timed = RouteOf(timing, TextOf(route, "name"));
  return IsMeasuring() && timed.is_object() ? timed : Member(route, "cycle");
}

double TopView::SortValue(const Json& route) const {
  switch (order) {
    case Order::PROCESSOR: return NumberOf(route, "processorShare").value_or(-1);
    case Order::RATE: return NumberOf(route, "framesPerSecond").value_or(-1);
    case Order::LOAD: return NumberOf(CycleOf(route), "share").value_or(-1);
    case Order::XRUNS: return NumberOf(route, "xruns").value_or(-1);
    case Order::TROUBLE: return State(route) == "runs" ? 1 : State(route) == "stopped" ? 0 : 2;
    case Order::NAME: break;
  }
  return 0;
}

// Numbers begin with the greatest.
std::vector<const Json*> TopView::SortedRoutes() const {
  std::vector<const Json*> routes;
  for (const Json& route : ListOf(stats, "routes")) routes.push_back(&route);
  std::stable_sort(routes.begin(), routes.end(), [this](const Json* a, const Json* b) {
    const double first = SortValue(*a);
    const double second = SortValue(*b);
    return first != second ? first > second : TextOf(*a, "name") < TextOf(*b, "name");
  });
  if (isReversed) std::reverse(routes.begin(), routes.end());
  return routes;
}

void TopView::AddRoute(const Json& route, const Painter& painter, std::vector<Row>& rows) const {
  const std::string name = TextOf(route, "name");
  const bool isFolded = folded.contains(name);
  const Json& cycle = CycleOf(route);
  const Json& blocks = ListOf(RouteOf(graph, name), "blocks");
  const std::string cells[COLUMNS] = {(blocks.empty() ? " "
                                       : isFolded     ? "+"
                                                      : "-") +
                                          Shown(route, "name"),
                                      State(route),
                                      NumberText(route, "processorShare", 1, 100),
                                      NumberText(route, "framesPerSecond", 1),
                                      NumberText(cycle, "mean", 1),
                                      NumberText(cycle, "share", 1, 100),
                                      NumberText(cycle, "worst", 1),
                                      NumberText(route, "xruns", 0),
                                      NumberText(route, "errorFrames", 0),
                                      NumberText(route, "frames", 0),
                                      Policy(route)};
  const auto look = [&](ColumnId id) {
    if (id == ROUTE) return Look::BOLD;
    if (id == STATE) return LookOfStatus(cells[STATE]);
    const bool isNew = (id == XRUNS && HasGrown(route, "xruns")) || (id == ERRORS && HasGrown(route, "errorFrames"));
    return isNew ? Look::RED : Look::PLAIN;
  };
  Line line = painter.Begin(rows);
  for (int i = 0; i < COLUMNS; ++i) {
    const auto id = static_cast<ColumnId>(i);
    if (!IsShown(id, painter.columns)) continue;
    id <= STATE ? line.Left(cells[id], TABLE[id].width, look(id)) : line.Right(cells[id], TABLE[id].width, look(id));
  }
  const std::string trouble = Trouble(route);
  const Look loud = TextOf(route, "why") == "stopped" ? Look::DIM : Look::RED;
  const bool isBeside = line.Room() >= LEAST_ROOM_FOR_WHY && Width(trouble) < line.Room();
  if (isBeside) line.Add(" ").Add(trouble, loud);
  rows.push_back({line.Take(), name});
  if (!trouble.empty() && !isBeside) {
    const std::size_t width = std::max<std::size_t>(painter.columns, 6) - 4;
    for (const std::string& part : Wrapped(trouble, width, MOST_WHY_LINES)) {
      rows.push_back({painter.Begin(rows).Add("    ").Add(part, loud).Take(), name});
    }
  }
  if (isFolded) return;
  for (const Json& block : blocks) AddBlock(route, block, painter, rows);
}

// Its times stand below those of the route, where there is room for both.
void TopView::AddBlock(const Json& route, const Json& block, const Painter& painter, std::vector<Row>& rows) const {
  const std::string routeName = TextOf(route, "name");
  const std::string name = TextOf(block, "name");
  const bool holds = Stands(route) && TextOf(route, "inBlock") == name;
  const Look look = holds ? Look::RED : Look::PLAIN;
  const bool isWide = IsShown(CYCLE, painter.columns);
  Line line = painter.Begin(rows);
  line.Add(holds ? "  > " : "    ", look).Left(BlockTitle(block), isWide ? WIDE_BLOCK : NARROW_BLOCK, look);
  if (IsMeasuring()) {
    const Json& timed = BlockOf(timing, routeName, name);
    line.Right(NumberText(timed, "mean", 1), TABLE[CYCLE].width);
    if (isWide) line.Right(NumberText(timed, "share", 1, 100), TABLE[LOAD].width);
    if (IsShown(WORST, painter.columns)) line.Right(NumberText(timed, "worst", 1), TABLE[WORST].width);
  }
  for (const Json& reading : ListOf(route, "readings")) {
    if (TextOf(reading, "block") == name) AddReading(line, reading);
  }
  rows.push_back({line.Take(), routeName});
}

void TopView::AddFifos(const Painter& painter, std::vector<Row>& rows) const {
  const auto fill = [](const Json& fifo) {
    const double capacity = NumberOf(fifo, "capacity").value_or(0);
    return capacity > 0 ? std::clamp(NumberOf(fifo, "count").value_or(0) / capacity, 0.0, 1.0) : 0;
  };
  std::vector<const Json*> fifos;
  for (const Json& fifo : ListOf(stats, "fifos")) fifos.push_back(&fifo);
  std::stable_sort(fifos.begin(), fifos.end(), [&](const Json* a, const Json* b) { return fill(*a) > fill(*b); });
  if (!fifos.empty()) rows.push_back({painter.Begin(rows).Take(), ""});
  const std::size_t bar = std::clamp<std::size_t>(painter.columns / 4, 8, 40);
  for (const Json* one : fifos) {
    const Json& fifo = *one;
    const auto end = [&](const char* side) {
      const Json& user = Member(fifo, side);
      const std::string block = Shown(user, "block");
      return block.empty() ? std::string("nobody") : Shown(user, "route") + " " + block;
    };
    const double part = fill(fifo);
    const auto full = static_cast<std::size_t>(std::lround(part * static_cast<double>(bar)));
    const bool isAtEnd = part == 0 || part == 1;
    Line line = painter.Begin(rows);
    line.Left(Shown(fifo, "name"), 8, Look::BOLD).Add("[");
    line.Add(std::string(full, '|'), isAtEnd ? Look::YELLOW : Look::GREEN).Add(std::string(bar - full, ' ') + "]");
    line.Right(Format("%.0f%%", 100 * part), 5);
    line.Left(NumberText(fifo, "count", 0) + "/" + NumberText(fifo, "capacity", 0), 13);
    line.Add(end("writer") + " -> " + end("reader"));
    if (support::IsTrue(fifo, "writerSleeps")) line.Add("  its writer waits for room", Look::RED);
    if (support::IsTrue(fifo, "readerSleeps")) line.Add("  its reader waits for samples", Look::YELLOW);
    rows.push_back({line.Take(), ""});
  }
}

std::vector<TopView::Row> TopView::BodyRows(const Painter& painter) const {
  std::vector<Row> rows;
  if (showsHelp) {
    for (const char* line : HELP) rows.push_back({painter.Begin(rows).Add(line).Take(), ""});
    return rows;
  }
  for (const Json* route : SortedRoutes()) AddRoute(*route, painter, rows);
  if (rows.empty() && problem.empty() && stats.is_object())
    rows.push_back({painter.Begin(rows).Add("No route").Take(), ""});
  AddFifos(painter, rows);
  return rows;
}

void TopView::Obey(Key key) {
  const std::size_t last = routeOfRow.empty() ? 0 : routeOfRow.size() - 1;
  const std::string route = cursor < routeOfRow.size() ? routeOfRow[cursor] : "";
  switch (key) {
    case Key::UP: cursor -= std::min<std::size_t>(cursor, 1); break;
    case Key::DOWN: cursor = std::min(cursor + 1, last); break;
    case Key::PAGE_UP: cursor -= std::min(cursor, page); break;
    case Key::PAGE_DOWN: cursor = std::min(cursor + page, last); break;
    case Key::HOME: cursor = 0; break;
    case Key::END: cursor = last; break;
    case Key::FOLD:
      if (route.empty()) break;
      folded.insert(route);
      while (cursor > 0 && routeOfRow[cursor - 1] == route) --cursor;  // what it stood on is gone
      break;
    case Key::UNFOLD: folded.erase(route); break;
    case Key::FOLD_ALL:
      if (!folded.empty()) {
        folded.clear();
        break;
      }
      for (const Json& one : ListOf(stats, "routes")) folded.insert(TextOf(one, "name"));
      cursor = 0;
      break;
    case Key::SORT:
      order = static_cast<Order>((static_cast<int>(order) + 1) % static_cast<int>(std::size(ORDERS)));
      break;
    case Key::REVERSE: isReversed = !isReversed; break;
    case Key::HELP: showsHelp = !showsHelp; break;
    case Key::NONE: break;
  }
}

std::vector<std::string> TopView::Draw(const std::string& title, const std::string& state, int columns, int rows,
                                       const Style& style) {
  const auto width = static_cast<std::size_t>(std::max(columns, 1));
  const auto height = static_cast<std::size_t>(std::max(rows, 1));
  std::vector<std::string> lines;
  const std::string sorting = std::string(ORDERS[static_cast<int>(order)]) + (isReversed ? ", reversed" : "");
  Line head(width, style, false);
  problem.empty() ? head.Add(title, Look::BOLD) : head.Add(problem, Look::RED);
  head.Add("  " + state + ", " + sorting + (IsMeasuring() ? ", measuring" : "") + "  h: keys", Look::DIM);
  lines.push_back(head.Take());
  lines.push_back(showsHelp ? "" : Head(width, style));

  std::vector<Row> body = BodyRows(Painter(width, style, cursor));
  const bool isToDecide = !isFoldingDecided && graph.is_object() && stats.is_object();
  if (isToDecide && body.size() + lines.size() > height) {  // more routes are worth more than their blocks
    Obey(Key::FOLD_ALL);
    body = BodyRows(Painter(width, style, cursor));
  }
  isFoldingDecided = isFoldingDecided || isToDecide;
  const bool isTooFar = cursor >= body.size() && !body.empty();
  if (isTooFar) {
    cursor = body.size() - 1;
    body = BodyRows(Painter(width, style, cursor));
  }
  routeOfRow.clear();
  for (const Row& row : body) routeOfRow.push_back(row.route);
  page = std::max<std::size_t>(height - std::min(height, lines.size()), 1);
  const bool isLong = body.size() > page;
  if (isLong && page > 1) --page;  // the last line says how much there is
  top = std::clamp(top, cursor - std::min(cursor, page - 1), cursor);
  top = std::min(top, body.size() - std::min(body.size(), page));
  for (std::size_t i = top; i < std::min(top + page, body.size()); ++i) lines.push_back(body[i].text);
  if (isLong && lines.size() < height) {
    const std::string range =
        Format("lines %zu to %zu of %zu", top + 1, std::min(top + page, body.size()), body.size());
    lines.push_back(Line(width, style, false).Add(range, Look::DIM).Take());
  }
  lines.resize(std::min(lines.size(), height));
  return lines;
}

}  // namespace vrdb
