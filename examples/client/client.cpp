// A program with a route inside: a tone that the program makes goes through a FIFO into the route, which makes it
// quieter and writes it to a file, until somebody ends the program. vrdb sees all of it meanwhile, and can change it.
//
//     g++ -std=c++17 client.cpp -o client $(pkg-config --cflags --libs vorn)
//     ./client tone.wav                          Ctrl-C ends it
#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <thread>

#include <unistd.h>

#include <vorn/Plugin.h>
#include <vorn/Vorn.h>

namespace {

constexpr unsigned RATE = 48000;
constexpr long FRAME = 480;  // samples: 10 ms
constexpr long CAPACITY = 10 * FRAME;

using Frame = std::array<std::int16_t, FRAME>;

volatile std::sig_atomic_t isToldToStop = 0;

/** What a microphone, a decoder or a network would bring: the next 10 ms, and then the next. */
class Tone {
 public:
  void Fill(Frame& frame) {
    for (std::int16_t& sample : frame) {
      sample = static_cast<std::int16_t>(10000 * std::sin(phase));
      phase = std::fmod(phase + STEP, 2 * M_PI);
    }
  }

 private:
  static constexpr double STEP = 2 * M_PI * 440 / RATE;
  double phase = 0;
};

/** fifo -> gain -> file, on RouteA; false when the log says why not. */
bool Build(vorn::Route& route, vorn::FIFO& fifo, const char* path) {
  vorn::Block* in = route.NewBlock("libfifosource.so", true, false, {});
  vorn::Block* gain = route.NewBlock("libgain.so", false, false, {"-6"});
  vorn::Block* out = route.NewBlock("libfilesink.so", false, true, {path});
  if (!in || !gain || !out || vorn::AttachProducer(in, &fifo) != 0) return false;
  return route.NewLink(RATE, vorn::SampleFormat::S16_LE, 1, FRAME, in, 0, gain, 0) != nullptr &&
         route.NewLink(RATE, vorn::SampleFormat::S16_LE, 1, FRAME, gain, 0, out, 0) != nullptr;
}

/** Feeds the FIFO in real time. It never waits for the route, which an operator may stop. */
void Feed(vorn::FIFO& fifo) {
  Tone tone;
  Frame frame;
  auto due = std::chrono::steady_clock::now();
  for (long micros = 0; !isToldToStop; micros += 1000000 * FRAME / RATE) {
    tone.Fill(frame);
    fifo.Consume(frame.data(), FRAME, false, micros);
    due += std::chrono::microseconds(1000000 * FRAME / RATE);
    std::this_thread::sleep_until(due);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FILE.wav\n", argv[0]);
    return 2;
  }
  for (int signal : {SIGINT, SIGTERM}) std::signal(signal, [](int) { isToldToStop = 1; });

  vorn::Vorn& vorn = *vorn::Vorn::Instance();
  vorn::FIFO* fifo = vorn.NewFIFO(RATE, sizeof(std::int16_t), CAPACITY, 0);
  vorn::Route* route = vorn.NewRoute("RouteA", nullptr);
  const bool runs = Build(*route, *fifo, argv[1]) && route->Start() == 0;
  if (runs) {
    std::printf("Process %d writes %s. 'vrdb status' shows its route; Ctrl-C ends it.\n", getpid(), argv[1]);
    std::fflush(stdout);
    Feed(*fifo);
  }
  fifo->Shutdown();  // the route may sleep in it
  vorn.DeleteRoute(route);
  vorn.DeleteFIFO(fifo);
  return runs ? 0 : 1;
}
