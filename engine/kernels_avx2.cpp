// The kernels for processors with AVX2 (compiled with -mavx2; no fused multiply-add).
#include "kernels.h"

#include "kernels/intrinsics.h"

namespace csrt_engine {
namespace {
constexpr char kName[] = "avx2";
#include "kernels/table.h"
}  // namespace

const Kernels& avx2Kernels() { return kTable; }

}  // namespace csrt_engine
