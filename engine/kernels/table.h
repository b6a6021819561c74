// The set of functions of one instruction set; included once by every source that is compiled for one.
#pragma once

#include "admm.h"
#include "cells.h"
#include "pixels.h"
#include "planes.h"
#include "scale.h"
#include "scale_pixels.h"

static const Kernels kTable = {kName,           forwardPlanes,    peaksOfResponse, admmFilter, blendFloats, responsePlane,
                               packedRowSpectra, scaleSums,        scaleUpdate,
                               cubicRowBytes,   cubicColumnBytes, gradientsOfRow,  sampleRowOfPixels, gradientsOfSamples, hogOfCell,  storeCellBlocks};
