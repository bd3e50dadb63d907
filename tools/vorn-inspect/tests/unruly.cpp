// A plug-in that ends its process while it is loaded: by a crash, or by an exit, as the name of its file says.
#include <dlfcn.h>

#include <cstdlib>
#include <cstring>

__attribute__((constructor)) static void Load() {
  Dl_info self{};
  dladdr(reinterpret_cast<void*>(&Load), &self);
  if (std::strstr(self.dli_fname, "libcrash")) std::abort();
  std::_Exit(7);
}
