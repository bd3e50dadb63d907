// libsndfile, loaded when it is first needed: with all its codecs it takes more memory and time than the rest of a
// program that moves plain WAVs.
#include <dlfcn.h>
#include <sndfile.h>

#include <stdexcept>

namespace {

template <class Function>
Function* Find(Function*, const char* name) {
  static void* const library = dlopen("libsndfile.so.1", RTLD_NOW | RTLD_LOCAL);
  void* const found = library != nullptr ? dlsym(library, name) : nullptr;
  if (found == nullptr) throw std::runtime_error("libsndfile.so.1, which this kind of file needs, cannot be loaded");
  return reinterpret_cast<Function*>(found);
}

}  // namespace

#define FORWARD(result, function, parameters, arguments) \
  result function parameters {                           \
    static const auto real = Find(&function, #function); \
    return real arguments;                               \
  }

#pragma GCC visibility push(hidden)
extern "C" {
FORWARD(SNDFILE*, sf_open_virtual, (SF_VIRTUAL_IO * io, int mode, SF_INFO* info, void* user), (io, mode, info, user))
FORWARD(int, sf_close, (SNDFILE * file), (file))
FORWARD(int, sf_error, (SNDFILE * file), (file))
FORWARD(const char*, sf_strerror, (SNDFILE * file), (file))
FORWARD(const char*, sf_error_number, (int number), (number))
FORWARD(int, sf_command, (SNDFILE * file, int command, void* data, int size), (file, command, data, size))
FORWARD(int, sf_format_check, (const SF_INFO* info), (info))
FORWARD(sf_count_t, sf_seek, (SNDFILE * file, sf_count_t samples, int whence), (file, samples, whence))
FORWARD(sf_count_t, sf_read_raw, (SNDFILE * file, void* to, sf_count_t bytes), (file, to, bytes))
FORWARD(sf_count_t, sf_write_raw, (SNDFILE * file, const void* from, sf_count_t bytes), (file, from, bytes))
FORWARD(sf_count_t, sf_readf_short, (SNDFILE * file, short* to, sf_count_t samples), (file, to, samples))
FORWARD(sf_count_t, sf_readf_int, (SNDFILE * file, int* to, sf_count_t samples), (file, to, samples))
FORWARD(sf_count_t, sf_readf_float, (SNDFILE * file, float* to, sf_count_t samples), (file, to, samples))
FORWARD(sf_count_t, sf_writef_short, (SNDFILE * file, const short* from, sf_count_t samples), (file, from, samples))
FORWARD(sf_count_t, sf_writef_int, (SNDFILE * file, const int* from, sf_count_t samples), (file, from, samples))
FORWARD(sf_count_t, sf_writef_float, (SNDFILE * file, const float* from, sf_count_t samples), (file, from, samples))
}
#pragma GCC visibility pop
