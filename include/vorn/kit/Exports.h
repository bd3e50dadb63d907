/** Part of <vorn/Plugin.h>: what the two exported symbols of a plug-in do. */
#ifndef VORN_KIT_EXPORTS_H
#define VORN_KIT_EXPORTS_H

#include <algorithm>
#include <cstddef>
#include <exception>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <vorn/kit/Label.h>
#include <vorn/kit/PluginBlock.h>

namespace vorn {

/** Says first and last for the endpoints that a block has: a file source is first and a sink is last whatever the host thinks. */
inline bool IsOpenEnd(const Description::Ports& ports, bool hostSays) {
  return ports.most == 0 || (ports.least == 0 && hostSays);
}

template <class BlockClass>
Block* CreatePluginBlock(bool first, bool last, const std::vector<std::string>& arguments) {
  const char* name = "CreateBlock";
  try {
    Description description = BlockClass::Describe();
    name = description.name;
    const bool isFirst = IsOpenEnd(description.inputs, first);
    const bool isLast = IsOpenEnd(description.outputs, last);
    std::vector<std::string> own = arguments;
    std::string label = TakeLabel(own);
    auto block = std::make_unique<BlockClass>(Setup{isFirst, isLast, own, std::move(description), std::move(label)});
    const Refusal refusal = block->UnknownArguments();
    if (refusal.empty()) return block.release();
    _tlogging_print('E', __FILE__, __LINE__, __func__, "%s: %s", name, refusal.Text().c_str());
  } catch (const std::exception& e) {
    _tlogging_print('E', __FILE__, __LINE__, __func__, "%s: %s", name, e.what());
  } catch (...) {
    _tlogging_print('E', __FILE__, __LINE__, __func__, "%s: unknown exception", name);
  }
  return nullptr;
}

template <class BlockClass, class = void>
struct HasPlanStreams : std::false_type {};
template <class BlockClass>
struct HasPlanStreams<BlockClass, std::void_t<decltype(&BlockClass::PlanStreams)>> : std::true_type {};

template <class BlockClass>
Refusal PlanPluginStreams(const std::vector<std::string>& arguments, const std::vector<Stream>& in,
                          std::vector<Stream>& out) {
  const Description description = BlockClass::Describe();
  Parameters parameters(description);
  Refusal refusal = parameters.Parse(arguments);
  if (!refusal.empty()) return refusal;
  if constexpr (HasPlanStreams<BlockClass>::value) {
    refusal = BlockClass::PlanStreams(parameters, in, out);
    if (!refusal.empty()) return refusal;
  } else {
    for (Stream stream : in) {
      if (stream.linked == 0) continue;
      stream.length = LongestOf(in);
      for (Stream& leaving : out) leaving.Complete(stream);
      break;
    }
  }
  return CheckStreams(description, in, out);
}

template <std::size_t SIZE>
void CopyText(const std::string& from, char (&to)[SIZE]) {
  to[from.copy(to, SIZE - 1)] = '\0';
}

/** @return the result of a refused plan. */
inline int AnswerRefusal(const Refusal& refusal, PlanRefusal* answer) {
  if (answer == nullptr) return -20;
  answer->kind = refusal.about;
  answer->index = refusal.index;
  CopyText(refusal.name, answer->name);
  CopyText(refusal.Text(), answer->text);
  return -20;
}

template <class BlockClass>
int PlanPluginStreamsC(const char* const* arguments, std::size_t argumentCount, const Stream* in, std::size_t inCount,
                       Stream* out, std::size_t outCount, PlanRefusal* answer) {
  try {
    std::vector<Stream> leaving(out, out + outCount);
    const Refusal refusal =
        PlanPluginStreams<BlockClass>({arguments, arguments + argumentCount}, {in, in + inCount}, leaving);
    if (!refusal.empty()) return AnswerRefusal(refusal, answer);
    std::copy(leaving.begin(), leaving.begin() + static_cast<std::ptrdiff_t>(outCount), out);
    return 0;
  } catch (const std::exception& e) {
    return AnswerRefusal(e.what(), answer);
  }
}

template <class BlockClass>
const BlockInfo* DescribePluginBlock() {
  static const DescribedBlock described(BlockClass::Describe(), &PlanPluginStreamsC<BlockClass>);
  return &described.Info();
}

}  // namespace vorn

#endif
