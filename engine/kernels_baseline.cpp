// The kernels for the smallest processor of the family: SSE2 on amd64, NEON on arm64.
#include "kernels.h"

#include "kernels/intrinsics.h"

namespace csrt_engine {
namespace {
#if defined(__aarch64__)
constexpr char kName[] = "neon";
#elif defined(__SSE2__)
constexpr char kName[] = "sse2";
#else
constexpr char kName[] = "scalar";
#endif
#include "kernels/table.h"
}  // namespace

const Kernels& baselineKernels() { return kTable; }

}  // namespace csrt_engine
