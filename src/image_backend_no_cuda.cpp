#include "image_backend.h"

const ImageBackend& imageBackend() {
  static const HostImageBackend backend;
  return backend;
}
