// The headers that the kernels need; included before the namespace that the kernels are compiled in.
#pragma once

#include <cstdint>
#include <cstring>
#if defined(__SSE2__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif
