// Libraries that stay loaded when the plug-in goes, so that the leak check of the address sanitizer can be on.
#pragma once

#include <dlfcn.h>

/// OpenCV's libraries for video and windows, which the plug-in's libraries need, bring these two along. Both take
/// memory as soon as they are loaded (libgcrypt on behalf of libssh) and keep it for the life of the process: once they
/// are unloaded nothing points there any more, and each loading looks like a leak. Where one is not installed nothing
/// loads it either.
inline bool keepLoaded(const char* library) {
  return dlopen(library, RTLD_NOW | RTLD_NODELETE) != nullptr;
}
inline const bool kKeepsLibgcrypt = keepLoaded("libgcrypt.so.20");
inline const bool kKeepsPixman = keepLoaded("libpixman-1.so.0");
