// Makes what the test wants: the argument is the address of a function of the test.
#include <vorn/Block.h>

#include <functional>

extern "C" VORN_API vorn::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  return (*reinterpret_cast<std::function<vorn::Block*(bool, bool)>*>(std::stoull(args.at(0))))(first, last);
}
