// client TALLY: runs tally -> gain -> tally, where the gain is the installed one, and looks at what arrived.
#include <vorn/Vorn.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <utility>

using vorn::Route;

struct Callbacks : Route::Callbacks {
  std::promise<Route::StopReason> stopped;
  bool isTold = false;
  void OnStopped(Route::StopReason reason) override {
    if (!std::exchange(isTold, true)) stopped.set_value(reason);
  }
};

static int Fail(const char* what) {
  std::fprintf(stderr, "client: %s\n", what);
  return 1;
}

int main(int, char** argv) {
  static Callbacks callbacks;  // outlives the framework, so that an early return is safe
  auto stopped = callbacks.stopped.get_future();
  Route* route = vorn::Vorn::Instance()->NewRoute("RouteA", &callbacks);
  vorn::Block* source = route->NewBlock(argv[1], true, false, {});
  vorn::Block* gain = route->NewBlock("libgain.so", false, false, {"0"});
  vorn::Block* sink = route->NewBlock(argv[1], false, true, {});
  if (!source || !gain || !sink) return Fail("a block could not be made");
  if (!route->NewLink(48000, vorn::SampleFormat::S16_LE, 1, 480, source, 0, gain, 0) ||
      !route->NewLink(48000, vorn::SampleFormat::S16_LE, 1, 480, gain, 0, sink, 0)) {
    return Fail("a link could not be made");
  }
  if (route->Start() != 0) return Fail("the route did not start");
  if (stopped.wait_for(std::chrono::seconds(30)) != std::future_status::ready) return Fail("the route did not stop");
  if (stopped.get() != Route::StopReason::STOP_END_OF_FILE) return Fail("the route failed");

  std::vector<std::string> sum;
  route->GetParameter(sink, 0, sum);
  if (sum != std::vector<std::string>{"11517600"}) return Fail("other samples arrived than were sent");
  vorn::Vorn::Instance()->DeleteRoute(route);
  std::puts("client: all samples arrived");
  return 0;
}
