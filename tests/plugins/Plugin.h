// A plug-in whose block does nothing, but for what is broken about it.
#include <vorn/Block.h>

#define PLUGIN(broken)                                                                                   \
  struct Broken : vorn::Block {                                                                          \
    using Block::Block;                                                                                  \
    long ProcessFrame() override { return vorn::FRAME_DONE; }                                            \
    broken                                                                                               \
  };                                                                                                     \
  extern "C" VORN_API vorn::Block* CreateBlock(bool first, bool last, const std::vector<std::string>&) { \
    return new Broken(first, last);                                                                      \
  }
