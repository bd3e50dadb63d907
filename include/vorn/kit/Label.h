/** Part of <vorn/Plugin.h>: what a host calls a block, and the name that follows from it. */
#ifndef VORN_KIT_LABEL_H
#define VORN_KIT_LABEL_H

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

/**
 * An argument that begins so is not the block's but its host's, and says what the host calls the block: "@label=vol".
 * Anywhere among the arguments, to a block of the kit alone. The block is named after it: see SubnameOf.
 */
constexpr std::string_view LABEL_ARGUMENT = "@label=";

/** Takes what is a label out of the arguments. @return the last one; empty where there is none. */
inline std::string TakeLabel(std::vector<std::string>& arguments) {
  std::string label;
  const auto isLabel = [&](const std::string& argument) {
    if (argument.compare(0, LABEL_ARGUMENT.size(), LABEL_ARGUMENT) != 0) return false;
    label = argument.substr(LABEL_ARGUMENT.size());
    return true;
  };
  arguments.erase(std::remove_if(arguments.begin(), arguments.end(), isLabel), arguments.end());
  return label;
}

/**
 * What a label adds to the name of a block: "vol" makes gain_vol_0. Names are parts of file names and words of the
 * console, so what is no letter, digit, '_' or '-' becomes '_', and a long label is cut. A label that is like a block's
 * name already (gain_vol_3) adds what stands in the middle.
 *
 * @param plugIn gain.
 * @return empty where the label says no more than the plug-in's name: gain, gain_3.
 */
inline std::string SubnameOf(std::string_view label, std::string_view plugIn) {
  constexpr std::size_t MOST = 64;
  constexpr const char* DIGITS = "0123456789";
  const auto isLetter = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  };
  if (label == plugIn) return {};
  const std::size_t digits = label.find_last_not_of(DIGITS) + 1;  // npos + 1 is 0
  const bool isNumbered = digits > 0 && digits < label.size() && label[digits - 1] == '_';
  const bool isOfPlugIn =
      label.size() > plugIn.size() && label.compare(0, plugIn.size(), plugIn) == 0 && label[plugIn.size()] == '_';
  if (isNumbered && isOfPlugIn) {
    const std::size_t begin = plugIn.size() + 1;
    label = begin < digits ? label.substr(begin, digits - 1 - begin) : std::string_view();
  }
  std::string subname(label.substr(0, MOST));
  if (std::none_of(subname.begin(), subname.end(), isLetter)) return {};
  std::replace_if(
      subname.begin(), subname.end(), [&](char c) { return !isLetter(c) && c != '-'; }, '_');
  return subname;
}

}  // namespace vorn

#endif
