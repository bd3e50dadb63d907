// libsndfile, loaded when it is first needed: with all its codecs it takes more memory and time than the rest of a
// program that moves plain WAVs.
#include <dlfcn.h>
#include <sndfile.h>

#include <stdexcept>

namespace {

void* Find(const char* name) {
  static void* const library = dlopen("libsndfile.so.1", RTLD_NOW | RTLD_LOCAL);
  void* const found = library != nullptr ? dlsym(library, name) : nullptr;
  if (found == nullptr) throw std::runtime_error("libsndfile.so.1, which this kind of file needs, cannot be loaded");
  return found;
}

template <auto function, class... Args>
auto Call(const char* name, Args... args) {
  static const auto real = reinterpret_cast<decltype(function)>(Find(name));
  return real(args...);
}

}  // namespace

#pragma GCC visibility push(hidden)
extern "C" {
SNDFILE* sf_open_virtual(SF_VIRTUAL_IO* sfvirtual, int mode, SF_INFO* sfinfo, void* data) {
  return Call<sf_open_virtual>("sf_open_virtual", sfvirtual, mode, sfinfo, data);
}
int sf_close(SNDFILE* sndfile) { return Call<sf_close>("sf_close", sndfile); }
int sf_error(SNDFILE* sndfile) { return Call<sf_error>("sf_error", sndfile); }
const char* sf_strerror(SNDFILE* sndfile) { return Call<sf_strerror>("sf_strerror", sndfile); }
const char* sf_error_number(int errnum) { return Call<sf_error_number>("sf_error_number", errnum); }
int sf_command(SNDFILE* sndfile, int command, void* data, int datasize) {
  return Call<sf_command>("sf_command", sndfile, command, data, datasize);
}
int sf_format_check(const SF_INFO* info) { return Call<sf_format_check>("sf_format_check", info); }
sf_count_t sf_seek(SNDFILE* sndfile, sf_count_t frames, int whence) {
  return Call<sf_seek>("sf_seek", sndfile, frames, whence);
}
sf_count_t sf_read_raw(SNDFILE* sndfile, void* ptr, sf_count_t bytes) {
  return Call<sf_read_raw>("sf_read_raw", sndfile, ptr, bytes);
}
sf_count_t sf_write_raw(SNDFILE* sndfile, const void* ptr, sf_count_t bytes) {
  return Call<sf_write_raw>("sf_write_raw", sndfile, ptr, bytes);
}
sf_count_t sf_readf_short(SNDFILE* sndfile, short* ptr, sf_count_t frames) {
  return Call<sf_readf_short>("sf_readf_short", sndfile, ptr, frames);
}
sf_count_t sf_readf_int(SNDFILE* sndfile, int* ptr, sf_count_t frames) {
  return Call<sf_readf_int>("sf_readf_int", sndfile, ptr, frames);
}
sf_count_t sf_readf_float(SNDFILE* sndfile, float* ptr, sf_count_t frames) {
  return Call<sf_readf_float>("sf_readf_float", sndfile, ptr, frames);
}
sf_count_t sf_writef_short(SNDFILE* sndfile, const short* ptr, sf_count_t frames) {
  return Call<sf_writef_short>("sf_writef_short", sndfile, ptr, frames);
}
sf_count_t sf_writef_int(SNDFILE* sndfile, const int* ptr, sf_count_t frames) {
  return Call<sf_writef_int>("sf_writef_int", sndfile, ptr, frames);
}
sf_count_t sf_writef_float(SNDFILE* sndfile, const float* ptr, sf_count_t frames) {
  return Call<sf_writef_float>("sf_writef_float", sndfile, ptr, frames);
}
}
#pragma GCC visibility pop
