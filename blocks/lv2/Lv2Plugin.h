// What is installed of LV2, and what a host has to know of one plug-in.
#pragma once

#include <lilv/lilv.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct Lv2Port {
  enum Kind {
    CONTROL,       // a number that the user sets
    READING,       // a number that the plug-in gives
    AUDIO_IN,      // one channel
    SIDECHAIN_IN,  // one channel to listen to
    AUDIO_OUT,
    SIGNAL_IN,  // a control voltage
    SIGNAL_OUT,
    EVENTS_IN,  // atoms
    EVENTS_OUT,
    UNUSED,
  };

  Kind kind = UNUSED;
  std::string symbol;
  std::string help;  // its name, and the values that have names
  std::string unit;
  double least = 0;
  double most = 0;
  double initial = 0;
  bool isSwitch = false;
  bool isWhole = false;
  bool isStepped = false;  // values in between make no sense
  bool isPerRate = false;  // its limits are parts of the sample rate
};

struct Lv2Plugin {
  std::size_t Count(Lv2Port::Kind kind) const;
  bool IsLatency(std::size_t port) const { return latencyPort == port; }

  std::string uri;
  const LilvPlugin* plugin = nullptr;
  std::vector<Lv2Port> ports;
  std::optional<std::size_t> latencyPort;
};

// Throws std::invalid_argument, which says what is wrong: not there, broken, or needs more than this host has.
Lv2Plugin FindLv2Plugin(const std::string& uri);

struct Lv2InstanceDeleter {
  void operator()(LilvInstance* instance) const;
  std::shared_ptr<const void> features;  // the plug-in may look at them as long as it lives
};
using Lv2Instance = std::unique_ptr<LilvInstance, Lv2InstanceDeleter>;

// Throws std::runtime_error. The plug-in is run on 1 to `mostSamples` samples at a time.
Lv2Instance MakeLv2Instance(const Lv2Plugin& plugin, double rate, int mostSamples);

// Memory for a port of atoms: nothing to tell the plug-in, or room for what it tells.
class Lv2Events {
 public:
  explicit Lv2Events(bool isInput);
  void* Data() { return memory.data(); }
  void Reset();

 private:
  bool isInput;
  std::vector<std::uint64_t> memory;
};
