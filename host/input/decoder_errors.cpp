#include "input/decoder_errors.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdarg>

namespace host {
namespace {

constexpr int kError = 16;  // FFmpeg's AV_LOG_ERROR; worse ones have smaller numbers

std::atomic<long> errors{0};

void listen(void* /*context*/, int level, const char* /*format*/, va_list /*arguments*/) {
  if (level >= 0 && level <= kError) ++errors;
}

}  // namespace

void watchDecoder() {
  using Listener = void (*)(void*, int, const char*, va_list);
  using SetListener = void (*)(Listener);
  // FFmpeg is OpenCV's: which version, and whether it is there at all, is known when the program runs.
  static const auto setListener = reinterpret_cast<SetListener>(dlsym(RTLD_DEFAULT, "av_log_set_callback"));
  if (setListener != nullptr) setListener(&listen);
}

long decoderErrors() {
  return errors;
}

}  // namespace host
