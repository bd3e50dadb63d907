// The plug-in of the benches: makes what its program wants. The argument is the address of a function of the program.
#include <functional>
#include <string>

#include <vorn/Block.h>

extern "C" VORN_API vorn::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  return (*reinterpret_cast<std::function<vorn::Block*(bool, bool)>*>(std::stoull(args.at(0))))(first, last);
}
