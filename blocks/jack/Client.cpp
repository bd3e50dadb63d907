#include "Client.h"

#include <dlfcn.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <thread>
#include <utility>

namespace jack {
namespace {

using vorn::Refusal;

constexpr int MILLIS_TO_WAIT = 1000;
constexpr int MILLIS_TO_CLOSE = 50;      // what a server gets for its answer after an interrupt
constexpr std::size_t MAX_CYCLE = 8192;  // samples that a server moves at a time

/** The names that a function of JACK returned. */
struct PortNames {
  explicit PortNames(const char** list) : names(list) {}
  ~PortNames() { jack_free(names); }
  PortNames(const PortNames&) = delete;
  PortNames& operator=(const PortNames&) = delete;
  const char** names;
};

void Quiet(const char*) {}

}  // namespace

void DescribeClient(vorn::Description& description, const char* connectHelp) {
  using vorn::Parameter;
  description
      .Takes(Parameter::Text(NAME, "name")
                 .Default("vorn")
                 .Positional()
                 .Help("name of the client, which its ports begin with"))
      .Takes(
          Parameter::Integer(CHANNELS, "channels", "", 1, 64).Default(2.0).Help("ports, where the graph does not say"))
      .Takes(Parameter::Text(CONNECT, "connect").Help(connectHelp))
      .Takes(Parameter::Text(SERVER, "server").Help("name of the server; the default one if left out"))
      .Takes(Parameter::Integer(LATENCY, "latency", "samples", 0, 1 << 20)
                 .Default(0.0)
                 .Help("room between server and route; 0: four frames or cycles"))
      .Takes(Parameter::Reading(XRUNS, "xruns", "").Help("times that the server came and the route was not ready"));
}

Client::Client(JackPortFlags portFlags) : flags(portFlags), cycles(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Client::~Client() {
  Close();
  close(cycles);
}

Refusal Client::Connect(const vorn::Parameters& parameters) {
  jack_set_error_function(Quiet);  // what went wrong is in the status, once
  jack_set_info_function(Quiet);
  const std::string& server = parameters.Text(SERVER);
  jack_status_t status{};
  const int options = JackNoStartServer | (server.empty() ? 0 : JackServerName);
  client.reset(
      jack_client_open(parameters.Text(NAME).c_str(), static_cast<jack_options_t>(options), &status, server.c_str()));
  if (client) return {};
  const std::string which = server.empty() ? "JACK server" : "JACK server '" + server + "'";
  if ((status & JackServerFailed) != 0) return "no " + which + " runs here; start one, such as 'jackd -d alsa'";
  return "the " + which + " refuses the client '" + parameters.Text(NAME) + "' (status " +
         std::to_string(static_cast<unsigned>(status)) + ")";
}

Refusal Client::Activate(const vorn::Parameters& parameters, const vorn::FrameBuffer& stream) {
  const bool records = flags == JackPortIsInput;
  if (stream.rate != Rate()) {
    Refusal refusal = Refusal::Endpoint(!records, 0).Field("rate").Got(std::to_string(stream.rate) + " Hz");
    refusal.Takes("the " + std::to_string(Rate()) + " Hz of the JACK server").Advice("put a 'resample' between");
    return refusal.Line(refusal.Reason());
  }
  const std::size_t cycle = std::max<std::size_t>(jack_get_buffer_size(client.get()), MAX_CYCLE);
  const std::size_t burst =
      std::max<std::size_t>(jack_get_buffer_size(client.get()), static_cast<std::size_t>(stream.samplesPerFrame));
  const long latency = parameters.Integer(LATENCY);
  const std::size_t room = std::max(4 * burst, static_cast<std::size_t>(latency));
  ring.reset(jack_ringbuffer_create(room * stream.channels * sizeof(float) + 1));
  if (!ring) return "no memory for " + std::to_string(room) + " samples";
  scratch.assign(cycle * stream.channels, 0);
  xruns = 0;
  isGone = isPlaying = false;
  eventfd_t past = 0;
  eventfd_read(cycles, &past);

  for (unsigned c = 0; c < stream.channels; ++c) {
    const std::string name = (records ? "in_" : "out_") + std::to_string(c + 1);
    ports.push_back(jack_port_register(client.get(), name.c_str(), JACK_DEFAULT_AUDIO_TYPE, flags, 0));
    if (!ports.back()) return "the JACK server has no port left for channel " + std::to_string(c + 1);
  }
  jack_set_process_callback(client.get(), OnProcess, this);
  jack_on_shutdown(client.get(), OnShutdown, this);
  if (jack_activate(client.get()) != 0) return "the JACK server does not run the client";
  return Join(parameters.Text(CONNECT));
}

/** Joins port by port to those that the pattern names, in the server's order. */
Refusal Client::Join(const std::string& pattern) {
  if (pattern.empty()) return {};
  const bool records = flags == JackPortIsInput;
  const PortNames others(jack_get_ports(client.get(), pattern.c_str(), JACK_DEFAULT_AUDIO_TYPE,
                                        records ? JackPortIsOutput : JackPortIsInput));
  if (!others.names) return "no port that matches '" + pattern + "'; 'jack_lsp' lists them";
  for (std::size_t c = 0; c < ports.size() && others.names[c]; ++c) {
    const char* mine = jack_port_name(ports[c]);
    const char* from = records ? others.names[c] : mine;
    const char* to = records ? mine : others.names[c];
    if (jack_connect(client.get(), from, to) != 0) return std::string("cannot connect ") + from + " to " + to;
  }
  return {};
}

void Client::Close() {
  client.reset();  // its thread is gone afterwards
  ports.clear();
  ring.reset();
}

int Client::OnProcess(jack_nframes_t frames, void* self) {
  auto& client = *static_cast<Client*>(self);
  if (frames * client.ports.size() > client.scratch.size()) return 0;
  client.flags == JackPortIsInput ? client.Record(frames) : client.Play(frames);
  eventfd_write(client.cycles, 1);
  return 0;
}

void Client::OnShutdown(void* self) {
  auto& client = *static_cast<Client*>(self);
  client.isGone = true;
  eventfd_write(client.cycles, 1);
}

void Client::Record(jack_nframes_t frames) {
  const std::size_t channels = ports.size();
  for (std::size_t c = 0; c < channels; ++c) {
    const auto* from = static_cast<const float*>(jack_port_get_buffer(ports[c], frames));
    for (std::size_t i = 0; i < frames; ++i) scratch[i * channels + c] = from[i];
  }
  const std::size_t bytes = frames * channels * sizeof(float);
  if (jack_ringbuffer_write_space(ring.get()) < bytes) {
    xruns.fetch_add(1, std::memory_order_relaxed);  // a whole cycle is lost, so that channels stay in step
    return;
  }
  jack_ringbuffer_write(ring.get(), reinterpret_cast<const char*>(scratch.data()), bytes);
}

void Client::Play(jack_nframes_t frames) {
  const std::size_t channels = ports.size();
  const std::size_t bytes = frames * channels * sizeof(float);
  const std::size_t got = jack_ringbuffer_read(ring.get(), reinterpret_cast<char*>(scratch.data()), bytes);
  if (got < bytes && isPlaying.load(std::memory_order_relaxed)) xruns.fetch_add(1, std::memory_order_relaxed);
  std::fill(scratch.begin() + static_cast<std::ptrdiff_t>(got / sizeof(float)),
            scratch.begin() + static_cast<std::ptrdiff_t>(frames * channels), 0.0F);
  for (std::size_t c = 0; c < channels; ++c) {
    auto* to = static_cast<float*>(jack_port_get_buffer(ports[c], frames));
    for (std::size_t i = 0; i < frames; ++i) to[i] = scratch[i * channels + c];
  }
}

Client::Result Client::WaitForCycle(vorn::Interrupt& interrupt) {
  const vorn::Interrupt::Result waited = interrupt.Await(cycles, POLLIN, MILLIS_TO_WAIT);
  if (waited == vorn::Interrupt::TIMEOUT) return Result::TIMEOUT;
  if (waited == vorn::Interrupt::INTERRUPTED) return Result::INTERRUPTED;
  eventfd_t count = 0;
  eventfd_read(cycles, &count);
  return Result::DONE;
}

template <class Ready>
Client::Result Client::WaitUntil(vorn::Interrupt& interrupt, Ready ready) {
  while (!ready()) {
    if (isGone) return Result::SERVER_GONE;
    if (const Result waited = WaitForCycle(interrupt); waited != Result::DONE) return waited;
  }
  return Result::DONE;
}

Client::Result Client::Read(float* to, std::size_t floats, vorn::Interrupt& interrupt) {
  const std::size_t bytes = floats * sizeof(float);
  const Result result = WaitUntil(interrupt, [&] { return jack_ringbuffer_read_space(ring.get()) >= bytes; });
  if (result == Result::DONE) jack_ringbuffer_read(ring.get(), reinterpret_cast<char*>(to), bytes);
  return result;
}

std::size_t Client::ReadRest(float* to, std::size_t most) {
  const std::size_t floats = std::min(most, jack_ringbuffer_read_space(ring.get()) / sizeof(float));
  return jack_ringbuffer_read(ring.get(), reinterpret_cast<char*>(to), floats * sizeof(float)) / sizeof(float);
}

Client::Result Client::Write(const float* from, std::size_t floats, vorn::Interrupt& interrupt) {
  const std::size_t bytes = floats * sizeof(float);
  const Result result = WaitUntil(interrupt, [&] { return jack_ringbuffer_write_space(ring.get()) >= bytes; });
  if (result != Result::DONE) return result;
  jack_ringbuffer_write(ring.get(), reinterpret_cast<const char*>(from), bytes);
  isPlaying.store(true, std::memory_order_relaxed);
  return result;
}

bool Client::Flush(vorn::Interrupt& interrupt) {
  if (!ring) return true;
  isPlaying = false;
  const Result result = WaitUntil(interrupt, [&] { return jack_ringbuffer_read_space(ring.get()) == 0; });
  // The server has played the last of it one cycle after it took it.
  return result != Result::INTERRUPTED && WaitForCycle(interrupt) != Result::INTERRUPTED;
}

void CloseClient(std::shared_ptr<Client>& client, JackPortFlags portFlags, vorn::Interrupt& interrupt) {
  const auto done = std::make_shared<vorn::Interrupt>();
  std::thread closer([old = std::exchange(client, std::make_shared<Client>(portFlags)), done] {
    old->Close();
    done->Raise();
  });
  if (interrupt.Await(done->Descriptor(), POLLIN) == vorn::Interrupt::READY) return closer.join();
  if (done->Sleep(MILLIS_TO_CLOSE) == vorn::Interrupt::INTERRUPTED) return closer.join();
  closer.detach();
  // The thread comes back to this code whenever the server goes on: it must stay loaded.
  Dl_info self{};
  if (dladdr(reinterpret_cast<void*>(&CloseClient), &self) != 0) dlopen(self.dli_fname, RTLD_NOW | RTLD_NODELETE);
}

}  // namespace jack
