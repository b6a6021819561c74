#include "color_names.h"

namespace csrt_engine {

const float kColorNameTable[32768][kColorNames] = {
#include "color_names_table.inc"
};

}  // namespace csrt_engine
