/** The live view: what `stats`, `graph` and `timing` say, on a terminal or in lines. */
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "Shell.h"

namespace vrdb {

/** What `top` was asked for. */
struct TopOptions {
  bool batch = false;
  bool json = false;
  long count = 0;  ///< samples to take; 0: for ever
  double interval = 1;
};

/** What a key means to the view. */
enum class Key { NONE, UP, DOWN, PAGE_UP, PAGE_DOWN, HOME, END, FOLD, UNFOLD, FOLD_ALL, SORT, REVERSE, HELP };

/**
 * The picture, and where its user is in it: what is folded, sorted and scrolled. It waits for nothing and knows no
 * terminal.
 */
class TopView {
 public:
  void TakeStats(Json reply);
  void TakeGraph(Json reply) { graph = std::move(reply); }
  void TakeTiming(Json reply) { timing = std::move(reply); }
  /** What stands in place of the process's name while there is none that answers; empty: there is. */
  void SetProblem(const std::string& text) { problem = text; }
  /** A new process begins anew. */
  void Clear();

  void Obey(Key key);
  bool IsMeasuring() const;

  /** At most `rows` lines, none wider than `columns`. `title` names the process, `state` says how often it is asked. */
  std::vector<std::string> Draw(const std::string& title, const std::string& state, int columns, int rows,
                                const Style& style);

 private:
  struct Row;
  class Painter;
  enum class Order { TROUBLE, NAME, PROCESSOR, RATE, LOAD, XRUNS };

  std::vector<const Json*> SortedRoutes() const;
  double SortValue(const Json& route) const;
  std::vector<Row> BodyRows(const Painter& painter) const;
  void AddRoute(const Json& route, const Painter& painter, std::vector<Row>& rows) const;
  void AddBlock(const Json& route, const Json& block, const Painter& painter, std::vector<Row>& rows) const;
  void AddFifos(const Painter& painter, std::vector<Row>& rows) const;
  const Json& CycleOf(const Json& route) const;
  bool HasGrown(const Json& route, const char* counter) const;

  Json graph, stats, timing;
  std::string problem;
  std::map<std::string, double> before;  // "RouteA xruns", of the last stats

  Order order = Order::TROUBLE;
  bool isReversed = false;
  bool showsHelp = false;
  bool isFoldingDecided = false;
  std::set<std::string> folded;
  std::size_t cursor = 0;
  std::size_t top = 0;
  std::size_t page = 1;
  std::vector<std::string> routeOfRow;  // as last drawn
};

/** The view on a terminal, until its user ends it. In TopScreen.cpp. */
Result WatchOnScreen(Shell& shell, TopOptions options);

}  // namespace vrdb
