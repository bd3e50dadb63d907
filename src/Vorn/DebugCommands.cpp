// The console's commands but for status. A handler puts its failure text into the reply first, reads its arguments, and
// leaves at the first thing that is missing or wrong.
#include <sstream>

#include "Block/Topology.h"
#include "Log.h"
#include "Vorn/VornImpl.h"

namespace vorn {
namespace {

constexpr unsigned LOG_SHORT_LINES = 0x4000;
constexpr int LEVEL_OF_SHORT_LINES = 4;

std::vector<std::string> RemainingWords(std::stringstream& args) {
  std::vector<std::string> words;
  for (std::string word; args >> word;) words.push_back(word);
  return words;
}

bool ParseBool(const std::string& word, bool& value) {
  value = word == "true";
  return value || word == "false";
}

/** The formats that newlink takes: the packed 24-bit ones are not among them. */
bool ParseFormat(const std::string& word, SampleFormat& format) {
  static constexpr struct {
    const char* name;
    SampleFormat format;
  } FORMATS[] = {
      {"BYTE", SampleFormat::BYTE},         {"S16_LE", SampleFormat::S16_LE}, {"S16_BE", SampleFormat::S16_BE},
      {"S32_LE", SampleFormat::S32_LE},     {"S32_BE", SampleFormat::S32_BE}, {"FLOAT_LE", SampleFormat::FLOAT_LE},
      {"FLOAT_BE", SampleFormat::FLOAT_BE},
  };
  for (const auto& entry : FORMATS) {
    if (word != entry.name) continue;
    format = entry.format;
    return true;
  }
  return false;
}

Block* FindBlock(const RouteImpl& route, const std::string& name) {
  const Topology::Lock lock;
  for (Block* block : route.Blocks_l()) {
    if (block->Name() == name) return block;
  }
  return nullptr;
}

/** The name of a block or link that the route still has; empty when somebody deleted it meanwhile. */
template <class Instance>
std::string NameOf(const std::set<Instance*>& instances, Instance* instance) {
  const Topology::Lock lock;
  return instances.contains(instance) ? instance->Name() : std::string();
}

}  // namespace

int VornImpl::OnCommand_newroute(std::stringstream& args, std::string& reply) {
  reply = "Failed to create route\n";
  std::string name;
  if (!(args >> name)) return -1;
  if (!NewRoute(name.c_str(), nullptr)) return -1;
  reply = "Created " + name + "\n";
  return 0;
}

int VornImpl::OnCommand_newblock(std::stringstream& args, std::string& reply) {
  reply = "Failed to create block\n";
  std::string routeName, soFile, isFirst, isLast;
  bool first = false;
  bool last = false;
  if (!(args >> routeName >> soFile >> isFirst)) return -1;
  if (!ParseBool(isFirst, first)) {
    LOG_E("Invalid ISFIRST=%s, should be 'true' or 'false'", isFirst.c_str());
    return -1;
  }
  if (!(args >> isLast)) return -1;
  if (!ParseBool(isLast, last)) {
    LOG_E("Invalid ISLAST=%s, should be 'true' or 'false'", isLast.c_str());
    return -1;
  }
  const auto route = FindRoute(routeName);
  if (!route) return -1;
  Block* block = route->NewBlock(soFile.c_str(), first, last, RemainingWords(args));
  const std::string name = NameOf(route->Blocks_l(), block);
  if (name.empty()) return -1;
  reply = "Created " + name + " from " + soFile + " on " + routeName + "\n";
  return 0;
}

int VornImpl::OnCommand_newlink(std::stringstream& args, std::string& reply) {
  reply = "Failed to create link\n";
  std::string routeName, formatName, sourceName, sinkName;
  SampleFormat format{};
  unsigned int rate = 0;
  unsigned int channels = 0;
  long samples = 0;
  std::size_t out = 0;
  std::size_t in = 0;
  if (!(args >> routeName >> rate >> formatName)) return -1;
  if (!ParseFormat(formatName, format)) {
    LOG_E("Invalid FORMAT=%s", formatName.c_str());
    return -1;
  }
  if (!(args >> channels >> samples >> sourceName >> out >> sinkName >> in)) return -1;

  const auto route = FindRoute(routeName);
  Block* source = route ? FindBlock(*route, sourceName) : nullptr;
  Block* sink = route ? FindBlock(*route, sinkName) : nullptr;
  if (!source || !sink) {
    LOG_E("Unable create a link from %s's O%02zu to %s's I%02zu on %s", sourceName.c_str(), out, sinkName.c_str(), in,
          routeName.c_str());
    return -1;
  }
  Link* link = route->NewLink(rate, format, channels, samples, source, out, sink, in);
  const std::string name = NameOf(route->Links_l(), link);
  if (name.empty()) return -1;
  reply = "Created " + name + " on " + routeName + "\n";
  return 0;
}

int VornImpl::OnCommand_start(std::stringstream& args, std::string& reply) {
  reply = "Failed to start route\n";
  std::string routeName;
  if (!(args >> routeName)) return -1;
  const auto route = FindRoute(routeName);
  if (!route || route->Start() != 0) return -1;
  reply = "Started " + routeName + "\n";
  return 0;
}

int VornImpl::OnCommand_stop(std::stringstream& args, std::string& reply) {
  reply = "Failed to stop route\n";
  std::string routeName;
  if (!(args >> routeName)) return -1;
  const auto route = FindRoute(routeName);
  if (!route || route->Stop() != 0) return -1;
  reply = "Stopped " + routeName + "\n";
  return 0;
}

int VornImpl::OnCommand_setparam(std::stringstream& args, std::string& reply) {
  reply = "Failed to set parameter\n";
  std::string routeName, instance;
  unsigned int key = 0;
  if (!(args >> routeName >> instance >> key)) return -1;
  const std::vector<std::string> values = RemainingWords(args);
  const auto route = FindRoute(routeName);
  Block* block = route ? FindBlock(*route, instance) : nullptr;
  if (!block || route->SetParameter(block, key, values) != 0) return -1;
  reply = "Success\n";
  return 0;
}

int VornImpl::OnCommand_getparam(std::stringstream& args, std::string& reply) {
  reply = "Failed to get parameter\n";
  std::string routeName, instance;
  unsigned int key = 0;
  if (!(args >> routeName >> instance >> key)) return -1;
  const auto route = FindRoute(routeName);
  Block* block = route ? FindBlock(*route, instance) : nullptr;
  std::vector<std::string> values;
  if (!block || route->GetParameter(block, key, values) != 0) return -1;
  reply.clear();
  // A NUL ends the reply: what a block puts behind one would be read as the reply to the next command.
  for (const std::string& value : values) reply.append(value, 0, value.find('\0')).append("\n");
  return 0;
}

int VornImpl::OnCommand_delete(std::stringstream& args, std::string& reply) {
  std::string routeName, instance;
  if (!(args >> routeName)) {
    reply = "error: Need a route name\n";
    return -1;
  }
  if (!(args >> instance)) {
    reply = "error: Need an instance name or '!'\n";
    return -1;
  }
  reply = "Can't find " + routeName + "\n";
  const auto route = FindRoute(routeName);
  if (!route) return -1;
  if (instance == "!") {
    DropRoute(route.get(), 1);
    reply = "Deleted " + routeName + "\n";
    return 0;
  }
  void* found = route->FindInstance(instance);
  if (!found) {
    reply = "Can't find " + instance + "\n";
    return -1;
  }
  const int ret = route->Delete(found);
  reply = (ret == 0 ? "Deleted " : "Failed to delete ") + instance + "\n";
  return ret;
}

int VornImpl::OnCommand_loglevel(std::stringstream& args, std::string& reply) {
  reply = "Failed to set log level\n";
  int level = 0;
  if (!(args >> level)) return -1;
  _tlogging_set_level(level);
  if (level <= LEVEL_OF_SHORT_LINES) {
    _tlogging_enable_options(LOG_SHORT_LINES);
  } else {
    _tlogging_disable_options(LOG_SHORT_LINES);
  }
  reply = "Success\n";
  return 0;
}

int VornImpl::OnCommand_setdump(std::stringstream& args, std::string& reply) {
  reply = "Failed to set dump\n";
  std::string path;
  if (!(args >> path)) return -1;
  const bool on = path != "--";
  if (path.back() != '/') path += '/';
  const std::string logFile = path + "vorn.log";

  reply.clear();
  if (_tlogging_set_file(on ? logFile.c_str() : nullptr) < 0) reply += "Failed to set dump log file\n";
  // One route at a time: a route that is stuck keeps nobody from deleting another.
  for (const std::string& name : RouteNames()) {
    if (const auto route = FindRoute(name)) route->SetDump(on ? path.c_str() : nullptr);
    ReleasedRoutes();
  }
  reply += "Done\n";
  return 0;
}

}  // namespace vorn
