// Colour names: how strongly a colour is meant by each of ten names, reduced to ten uncorrelated figures.
#pragma once

namespace csrt_engine {

constexpr int kColorNames = 10;

/// Row r / 8 + 32 * (g / 8) + 1024 * (b / 8) for a colour of 8-bit channels. From J. van de Weijer et al., "Learning
/// Color Names for Real-World Applications" (2009), with the figures that OpenCV's tracking module publishes
/// (Intel/OpenCV Foundation, BSD licence).
extern const float kColorNameTable[32768][kColorNames];

}  // namespace csrt_engine
