#include "PluginText.h"

#include <algorithm>
#include <vector>

#include "support/TextTable.h"

namespace vorn_inspect {

using Json = nlohmann::json;

const char MARKDOWN_HEAD[] =
    "# The standard blocks\n\n"
    "Made with `vorn-inspect --markdown`; `vorn-inspect NAME` tells all about one of them.\n"
    "Real time is what a frame costs besides arithmetic, once the first are through: system calls, locks, memory that "
    "is\n"
    "asked for. Safe: nothing.\n\n"
    "| block | what it does | inputs | outputs | arguments | readings | real time |\n"
    "|---|---|---|---|---|---|---|\n";

namespace {

std::string Padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

std::string CountOf(const Json& ports) {
  const auto least = ports["least"].get<unsigned>();
  const auto most = ports["most"].get<unsigned>();
  if (least == most) return std::to_string(most);
  return std::to_string(least) + " to " + std::to_string(most);
}

std::string ChannelsOf(const Json& port) {
  const auto least = port["minChannels"].get<unsigned>();
  if (!port.contains("maxChannels")) return least > 1 ? std::to_string(least) + " channels or more" : "any channels";
  const auto most = port["maxChannels"].get<unsigned>();
  if (least == most) return std::to_string(most) + (most == 1 ? " channel" : " channels");
  return std::to_string(least) + " to " + std::to_string(most) + " channels";
}

std::string FormatsOf(const Json& port) {
  const auto formats = port["formats"].get<std::string>();
  return std::count(formats.begin(), formats.end(), ' ') == 8 ? "any format" : formats;
}

std::string RealTimeOf(const Json& table) {
  const auto perFrame = table["perFrame"].get<std::string>();
  return perFrame.empty() ? "safe" : perFrame;
}

std::string PortLines(const char* title, const Json& ports) {
  if (ports["most"] == 0) return std::string(title) + "none\n";
  std::string text = title + CountOf(ports) + "\n";
  for (const Json& port : ports["each"]) {
    text += "  " + Padded(port["name"], 12) + " " + FormatsOf(port) + ", " + ChannelsOf(port);
    if (!port["help"].get<std::string>().empty()) text += "; " + port["help"].get<std::string>();
    text += "\n";
  }
  return text;
}

std::string WhenOf(const Json& parameter) {
  const auto access = parameter["access"].get<std::string>();
  return access == "live" ? "any time" : access == "read" ? "reading" : "stopped";
}

std::string ValueOf(const Json& parameter) {
  if (parameter.contains("value")) return parameter["value"];
  return parameter.value("required", false) ? "(required)" : parameter.value("default", "");
}

// Rather than what the plug-in says of every block.
bool IsOfBlock(const Json& parameters) { return !parameters.empty() && parameters[0].contains("value"); }

std::string ParameterLines(const Json& parameters) {
  std::vector<support::Row> rows = {
      {"id", "name", "unit", "range", IsOfBlock(parameters) ? "value" : "default", "set", ""}};
  for (const Json& p : parameters) {
    rows.push_back({std::to_string(p["id"].get<unsigned>()), p["name"], p["unit"], p["range"], ValueOf(p), WhenOf(p),
                    p.value("help", "")});
  }
  if (rows.size() == 1) return "Parameters: none\n";
  std::string text = "Parameters:\n";
  for (const std::string& line : support::TextTable(rows)) text += "  " + line + "\n";
  return text;
}

using Arguments = std::vector<std::pair<int, std::string>>;  // by position

/** One of several that differ by a number alone, and neither the first nor the last of them. */
bool IsWithinSeries(const Arguments& arguments, std::size_t i) {
  const auto stemOf = [&](std::size_t at) {
    const std::string& word = arguments[at].second;
    return word.substr(0, word.find_last_not_of("0123456789]") + 1);
  };
  return i > 0 && i + 1 < arguments.size() && stemOf(i - 1) == stemOf(i) && stemOf(i) == stemOf(i + 1);
}

std::string ArgumentsOf(const Json& parameters) {
  Arguments positional;
  std::string named;
  for (const Json& p : parameters) {
    if (p["access"] == "read") continue;
    const auto name = p["name"].get<std::string>();
    if (p.contains("position")) {
      positional.emplace_back(p["position"], p.value("required", false) ? name : "[" + name + "]");
    } else {
      named += " [" + name + "=]";
    }
  }
  std::sort(positional.begin(), positional.end());
  std::string text;
  for (std::size_t i = 0; i < positional.size(); ++i) {
    if (!IsWithinSeries(positional, i)) {
      text += " " + positional[i].second;
    } else if (!IsWithinSeries(positional, i - 1)) {
      text += " ...";
    }
  }
  return text + named;
}

std::string NamesOf(const Json& parameters, const char* access) {
  std::string names;
  for (const Json& p : parameters) {
    if (p["access"] == access) names += (names.empty() ? "" : ", ") + p["name"].get<std::string>();
  }
  return names;
}

}  // namespace

std::string LineOf(const std::string& name, const Json& table) {
  std::string line = Padded(name, 14) + " ";
  if (table.contains("error")) return line + "cannot be used: " + table["error"].get<std::string>();
  if (!table["kit"].get<bool>()) return line + "(says nothing of itself)";
  return line + table["summary"].get<std::string>();
}

std::string PageOf(const std::string& name, const Json& table) {
  if (!table["kit"].get<bool>()) {
    return name + "\n\nThis plug-in says nothing of itself: it is not made with the block author's kit.\n\nFile:     " +
           table["file"].get<std::string>() + "\n";
  }
  const Json& parameters = table["parameters"];
  std::string text = name + ": " + table["summary"].get<std::string>() + "\n\n";
  text += "Usage:    " + name + ArgumentsOf(parameters) + "\n";
  if (!table["example"].get<std::string>().empty()) text += "Example:  " + table["example"].get<std::string>() + "\n";
  text += "File:     " + table["file"].get<std::string>() + "\n\n";
  text += PortLines("Inputs:   ", table["inputs"]) + PortLines("Outputs:  ", table["outputs"]);
  if (table["readsFifo"].get<bool>()) text += "Takes its samples from a FIFO.\n";
  if (table["writesFifo"].get<bool>()) text += "Puts its samples into a FIFO.\n";
  text += "Real time: " + RealTimeOf(table) + "\n";
  if (table["setsPace"].get<bool>()) text += "Sets the pace of its route.\n";
  text += "\n" + ParameterLines(parameters);
  if (table["ownParameters"].get<bool>() && !IsOfBlock(parameters)) {
    text += "A block has further parameters of its own: give its arguments here to see them.\n";
  }
  return text;
}

std::string MarkdownRowOf(const Json& table) {
  const Json& parameters = table["parameters"];
  const std::string arguments = ArgumentsOf(parameters);
  const std::string readings = NamesOf(parameters, "read");
  return "| `" + table["name"].get<std::string>() + "` | " + table["summary"].get<std::string>() + " | " +
         CountOf(table["inputs"]) + " | " + CountOf(table["outputs"]) + " | " +
         (arguments.empty() ? "" : "`" + arguments.substr(1) + "`") + " | " + readings + " | " + RealTimeOf(table) +
         " |\n";
}

}  // namespace vorn_inspect
