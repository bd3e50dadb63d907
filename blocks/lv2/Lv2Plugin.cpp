#include "Lv2Plugin.h"

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/port-groups/port-groups.h>
#include <lv2/units/units.h>
#include <lv2/urid/urid.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <mutex>
#include <stdexcept>

namespace {

constexpr int EVENT_BYTES = 8192;

struct NodeDeleter {
  void operator()(LilvNode* node) const { lilv_node_free(node); }
};
using Node = std::unique_ptr<LilvNode, NodeDeleter>;

// Blocks of several routes come here, each on its own thread, and the library takes no care of that.
std::mutex libraryMutex;

// Everything that is installed, read when it is first asked for. Guarded by libraryMutex.
class World {
 public:
  World() : world(lilv_world_new()) { lilv_world_load_all(world); }
  ~World() { lilv_world_free(world); }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  LilvWorld* Get() const { return world; }
  Node Uri(const char* uri) const { return Node(lilv_new_uri(world, uri)); }
  const LilvPlugin* Find(const std::string& uri) const {
    if (uri.find(':') == std::string::npos) return nullptr;  // the library would complain about it
    const Node node = Uri(uri.c_str());
    return node ? lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world), node.get()) : nullptr;
  }
  // One whose URI has the name in it that the given one ends in, or nothing.
  std::string Near(const std::string& uri) const {
    const std::string name = uri.substr(uri.find_last_of("/#:") + 1);
    const LilvPlugins* all = lilv_world_get_all_plugins(world);
    std::string shortest;
    LILV_FOREACH(plugins, i, all) {
      const std::string other = lilv_node_as_uri(lilv_plugin_get_uri(lilv_plugins_get(all, i)));
      const bool isNear = !name.empty() && strcasestr(other.c_str(), name.c_str()) != nullptr;
      if (isNear && (shortest.empty() || other.size() < shortest.size())) shortest = other;
    }
    return shortest;
  }

 private:
  LilvWorld* world;
};

World& TheWorld() {
  static World world;
  return world;
}

// URIs as numbers, the same for all plug-ins as long as they live.
class Uris {
 public:
  LV2_URID Map(const char* uri) {
    const std::lock_guard<std::mutex> lock(mutex);
    return numbers.try_emplace(uri, static_cast<LV2_URID>(numbers.size() + 1)).first->second;
  }
  const char* Unmap(LV2_URID number) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found =
        std::find_if(numbers.begin(), numbers.end(), [&](const auto& entry) { return entry.second == number; });
    return found == numbers.end() ? nullptr : found->first.c_str();
  }

 private:
  std::mutex mutex;
  std::map<std::string, LV2_URID> numbers;
};

Uris uris;

// What this host has for a plug-in.
class Features {
 public:
  Features(double sampleRate, int mostSamples) : rate(static_cast<float>(sampleRate)), most(mostSamples) {
    options[0] = Option(LV2_BUF_SIZE__minBlockLength, LV2_ATOM__Int, sizeof least, &least);
    options[1] = Option(LV2_BUF_SIZE__maxBlockLength, LV2_ATOM__Int, sizeof most, &most);
    options[2] = Option(LV2_BUF_SIZE__sequenceSize, LV2_ATOM__Int, sizeof events, &events);
    options[3] = Option(LV2_PARAMETERS__sampleRate, LV2_ATOM__Float, sizeof rate, &rate);
  }
  Features(const Features&) = delete;
  Features& operator=(const Features&) = delete;

  const LV2_Feature* const* List() const { return pointers.data(); }
  static bool Has(const char* uri) {
    const Features any(0, 0);
    return std::any_of(any.list.begin(), any.list.end(),
                       [&](const LV2_Feature& f) { return std::strcmp(f.URI, uri) == 0; });
  }

 private:
  static LV2_Options_Option Option(const char* key, const char* type, std::size_t size, const void* value) {
    return {LV2_OPTIONS_INSTANCE, 0, uris.Map(key), static_cast<std::uint32_t>(size), uris.Map(type), value};
  }

  const std::int32_t least = 1;
  const std::int32_t events = EVENT_BYTES;
  const float rate;
  const std::int32_t most;
  std::array<LV2_Options_Option, 5> options{};
  LV2_URID_Map map{&uris,
                   [](LV2_URID_Map_Handle handle, const char* uri) { return static_cast<Uris*>(handle)->Map(uri); }};
  LV2_URID_Unmap unmap{
      &uris, [](LV2_URID_Unmap_Handle handle, LV2_URID number) { return static_cast<Uris*>(handle)->Unmap(number); }};
  const std::array<LV2_Feature, 7> list{{{LV2_URID__map, &map},
                                         {LV2_URID__unmap, &unmap},
                                         {LV2_OPTIONS__options, options.data()},
                                         {LV2_BUF_SIZE__boundedBlockLength, nullptr},
                                         {LV2_CORE__isLive, nullptr},
                                         {LV2_CORE__hardRTCapable, nullptr},
                                         {LV2_CORE__inPlaceBroken, nullptr}}};
  const std::array<const LV2_Feature*, 8> pointers{&list[0], &list[1], &list[2], &list[3],
                                                   &list[4], &list[5], &list[6], nullptr};
};

std::string TextOf(const LilvNode* node) { return node ? lilv_node_as_string(node) : ""; }

// Reads the ports of one plug-in. With libraryMutex held.
class PortReader {
 public:
  PortReader(const World& newWorld, const LilvPlugin* newPlugin)
      : world(newWorld),
        plugin(newPlugin),
        count(lilv_plugin_get_num_ports(plugin)),
        least(count),
        most(count),
        initial(count) {
    lilv_plugin_get_port_ranges_float(plugin, least.data(), most.data(), initial.data());
  }

  std::vector<Lv2Port> Read() {
    std::vector<Lv2Port> ports;
    for (std::uint32_t i = 0; i < count; ++i) ports.push_back(Read(i));
    return ports;
  }

 private:
  Lv2Port Read(std::uint32_t index) {
    port = lilv_plugin_get_port_by_index(plugin, index);
    Lv2Port read;
    read.symbol = TextOf(lilv_port_get_symbol(plugin, port));
    read.kind = KindOf(read.symbol);
    if (read.kind != Lv2Port::CONTROL && read.kind != Lv2Port::READING) return read;
    read.isSwitch = Has(LV2_CORE__toggled);
    read.isWhole = Has(LV2_CORE__integer);
    read.isStepped = read.isSwitch || read.isWhole || Has(LV2_CORE__enumeration);
    read.isPerRate = Has(LV2_CORE__sampleRate);
    read.unit = UnitText();
    read.help = Help();
    const double none = std::numeric_limits<double>::infinity();
    read.least = std::isnan(least[index]) ? -none : Exactly(least[index]);
    read.most = std::isnan(most[index]) ? none : Exactly(most[index]);
    if (read.least > read.most) std::swap(read.least, read.most);
    read.initial = !std::isnan(initial[index]) ? Exactly(initial[index]) : std::isinf(read.least) ? 0 : read.least;
    if (!read.isPerRate) read.initial = std::clamp(read.initial, read.least, read.most);
    return read;
  }

  // As it was written: 0.01 rather than 0.0099999998.
  static double Exactly(float number) {
    char text[64];
    const char* end = std::to_chars(text, text + sizeof text, number).ptr;
    double exactly = 0;
    std::from_chars(text, end, exactly);
    return exactly;
  }

  Lv2Port::Kind KindOf(const std::string& symbol) const {
    const bool isInput = Is(LILV_URI_INPUT_PORT);
    if (Is(LILV_URI_CONTROL_PORT)) return isInput ? Lv2Port::CONTROL : Lv2Port::READING;
    if (Is(LILV_URI_AUDIO_PORT))
      return !isInput ? Lv2Port::AUDIO_OUT : IsSidechain() ? Lv2Port::SIDECHAIN_IN : Lv2Port::AUDIO_IN;
    if (Is(LILV_URI_ATOM_PORT)) return isInput ? Lv2Port::EVENTS_IN : Lv2Port::EVENTS_OUT;
    if (Is(LILV_URI_CV_PORT)) return isInput ? Lv2Port::SIGNAL_IN : Lv2Port::SIGNAL_OUT;
    if (Has(LV2_CORE__connectionOptional)) return Lv2Port::UNUSED;
    throw std::invalid_argument("its port '" + symbol + "' is of a kind that is not known here");
  }

  bool IsSidechain() const {
    if (Has(LV2_CORE_PREFIX "isSideChain")) return true;
    const Node group(lilv_port_get(plugin, port, world.Uri(LV2_PORT_GROUPS__group).get()));
    return group && lilv_world_ask(world.Get(), group.get(), world.Uri(LV2_PORT_GROUPS__sideChainOf).get(), nullptr);
  }

  std::string UnitText() const {
    const Node unit(lilv_port_get(plugin, port, world.Uri(LV2_UNITS__unit).get()));
    if (!unit) return {};
    return TextOf(Node(lilv_world_get(world.Get(), unit.get(), world.Uri(LV2_UNITS__symbol).get(), nullptr)).get());
  }

  std::string Help() const {
    std::string help = TextOf(Node(lilv_port_get_name(plugin, port)).get());
    LilvScalePoints* points = lilv_port_get_scale_points(plugin, port);
    const char* separator = ": ";
    LILV_FOREACH(scale_points, i, points) {
      const LilvScalePoint* point = lilv_scale_points_get(points, i);
      help += separator + TextOf(lilv_scale_point_get_value(point)) + " " + TextOf(lilv_scale_point_get_label(point));
      separator = ", ";
    }
    lilv_scale_points_free(points);
    return help;
  }

  bool Is(const char* uri) const { return lilv_port_is_a(plugin, port, world.Uri(uri).get()); }
  bool Has(const char* uri) const { return lilv_port_has_property(plugin, port, world.Uri(uri).get()); }

  const World& world;
  const LilvPlugin* plugin;
  const LilvPort* port = nullptr;
  const std::uint32_t count;
  std::vector<float> least;
  std::vector<float> most;
  std::vector<float> initial;
};

void CheckFeatures(const LilvPlugin* plugin) {
  const std::unique_ptr<LilvNodes, decltype(&lilv_nodes_free)> required(lilv_plugin_get_required_features(plugin),
                                                                        lilv_nodes_free);
  LILV_FOREACH(nodes, i, required.get()) {
    const char* feature = lilv_node_as_uri(lilv_nodes_get(required.get(), i));
    if (!Features::Has(feature))
      throw std::invalid_argument(std::string("it needs the feature ") + feature + ", which is not known here");
  }
}

}  // namespace

std::size_t Lv2Plugin::Count(Lv2Port::Kind kind) const {
  return static_cast<std::size_t>(
      std::count_if(ports.begin(), ports.end(), [&](const Lv2Port& port) { return port.kind == kind; }));
}

Lv2Plugin FindLv2Plugin(const std::string& uri) {
  const std::lock_guard<std::mutex> lock(libraryMutex);
  const World& world = TheWorld();
  Lv2Plugin found;
  found.uri = uri;
  found.plugin = world.Find(uri);
  const std::string who = "LV2 plug-in '" + uri + "': ";
  if (!found.plugin) {
    const std::string near = world.Near(uri);
    throw std::invalid_argument(who + "not installed; takes one of those that 'lv2ls' lists" +
                                (near.empty() ? "" : ", such as " + near));
  }
  if (!lilv_plugin_verify(found.plugin)) throw std::invalid_argument(who + "its description is not complete");
  try {
    CheckFeatures(found.plugin);
    found.ports = PortReader(world, found.plugin).Read();
  } catch (const std::invalid_argument& e) {
    throw std::invalid_argument(who + e.what());
  }
  if (lilv_plugin_has_latency(found.plugin)) found.latencyPort = lilv_plugin_get_latency_port_index(found.plugin);
  return found;
}

void Lv2InstanceDeleter::operator()(LilvInstance* instance) const {
  const std::lock_guard<std::mutex> lock(libraryMutex);
  lilv_instance_free(instance);
}

Lv2Instance MakeLv2Instance(const Lv2Plugin& plugin, double rate, int mostSamples) {
  const std::lock_guard<std::mutex> lock(libraryMutex);
  const auto features = std::make_shared<const Features>(rate, mostSamples);
  Lv2Instance made(lilv_plugin_instantiate(plugin.plugin, rate, features->List()), {features});
  if (made) return made;
  throw std::runtime_error("LV2 plug-in '" + plugin.uri + "': cannot be loaded, or not run at " +
                           std::to_string(std::lround(rate)) + " Hz");
}

Lv2Events::Lv2Events(bool newIsInput) : isInput(newIsInput), memory(EVENT_BYTES / 8) { Reset(); }

void Lv2Events::Reset() {
  static const LV2_URID SEQUENCE = uris.Map(LV2_ATOM__Sequence);
  static const LV2_URID CHUNK = uris.Map(LV2_ATOM__Chunk);
  auto* const sequence = reinterpret_cast<LV2_Atom_Sequence*>(memory.data());
  sequence->atom.type = isInput ? SEQUENCE : CHUNK;
  sequence->atom.size = isInput ? sizeof(LV2_Atom_Sequence_Body) : EVENT_BYTES - sizeof(LV2_Atom);
  sequence->body = {};
}
