// The console looks and edits while clients make and delete everything: a half-changed picture is fine, a crash is not.
// What goes wrong here shows under the address and the thread sanitizer.
#include <algorithm>
#include <future>
#include <latch>
#include <sstream>

#include "Vorn/VornImpl.h"
#include "testkit/ConsoleClient.h"
#include "testkit/Probe.h"

namespace vorn {
namespace {

constexpr std::size_t CLIENTS = 4;
constexpr int ROUTES = 100;  // of each client, one after the other
constexpr int GRAPHS_OF_A_ROUTE = 25;

std::string RouteOf(std::size_t client) { return {'R', 'o', 'u', 't', 'e', static_cast<char>('A' + client)}; }

// The console makes and deletes blocks of its own name: one that a client made is that client's to use until it goes.
const std::function<Block*(bool, bool)> MAKE = [](bool first, bool last) { return new Probe(first, last, "own"); };

/** Blocks, a link and a FIFO come and go on a route that runs whenever its graph allows. */
void EditGraph(VornImpl& vorn, Route& route) {
  FIFO* fifo = vorn.NewFIFO(48000, 4, 10, 5);
  Block* source = Add(route, FIRST, "src");
  Block* sink = Add(route, LAST, "snk");
  fifo->reader = source;
  fifo->writer = sink;
  Link* link = Join(route, source, sink);
  route.Start();
  route.Delete(link);
  route.Delete(source);  // the FIFO's ends name blocks that are gone now
  route.Delete(sink);
  vorn.DeleteFIFO(fifo);
}

void MakeAndDelete(VornImpl& vorn, std::size_t client) {
  for (int i = 0; i < ROUTES; ++i) {
    Route* route = vorn.NewRoute(RouteOf(client).c_str(), nullptr);
    ASSERT_NE(route, nullptr);
    for (int graph = 0; graph < GRAPHS_OF_A_ROUTE; ++graph) EditGraph(vorn, *route);
    vorn.DeleteRoute(route);
  }
}

TEST(ConsoleStress, EditsWhatClientsMakeAndDelete) {
  VornImpl vorn("/nowhere");
  std::atomic<std::size_t> busy{CLIENTS};
  std::vector<std::thread> clients;
  for (std::size_t i = 0; i < CLIENTS; ++i) clients.emplace_back([&, i] { MakeAndDelete(vorn, i), --busy; });
  const std::string probe = " libprobe.so true false " + std::to_string(reinterpret_cast<std::uintptr_t>(&MAKE));
  std::istringstream commands(
      "status|status --dot|newroute RouteZ|newblock RouteZ" + probe + "|status|start RouteZ|newblock %" + probe +
      "|newlink % 8000 BYTE 1 8 probe_src_0 1 probe_snk_0 1|status --dot|setparam % probe_src_0 1 x|status|stop %|"
      "getparam % probe_snk_0 1|setdump --|delete % lnk_0|delete RouteZ !|delete % probe_own_0|status --dot");
  std::vector<std::string> list;
  for (std::string command; std::getline(commands, command, '|');) list.push_back(command);
  ConsoleClient console;
  std::size_t answers = 0;
  for (; busy > 0; ++answers) {
    std::string command = list[answers % list.size()];
    const std::size_t place = command.find('%');
    if (place != command.npos) command.replace(place, 1, RouteOf(answers / list.size() % CLIENTS));
    ASSERT_EQ(console.Ask(command).find("Unknown"), std::string::npos);
  }
  for (std::thread& client : clients) client.join();
  EXPECT_GT(answers, 100u);
  console.Ask("delete RouteZ !");
  EXPECT_EQ(console.Ask("status"), "No route\nNo fifo\n");
}

TEST(ConsoleStress, NoTwoRoutesOfOneName) {
  VornImpl vorn("/nowhere");
  for (int round = 0; round < 200; ++round) {
    std::latch together(CLIENTS);
    std::vector<std::future<Route*>> clients(CLIENTS);
    for (auto& client : clients) {
      client =
          std::async(std::launch::async, [&] { return together.arrive_and_wait(), vorn.NewRoute("RouteA", nullptr); });
    }
    std::vector<Route*> routes;
    for (auto& client : clients) routes.push_back(client.get());
    ASSERT_EQ(std::count(routes.begin(), routes.end(), nullptr), static_cast<long>(CLIENTS) - 1);
    for (Route* route : routes) vorn.DeleteRoute(route);
  }
}

}  // namespace
}  // namespace vorn
