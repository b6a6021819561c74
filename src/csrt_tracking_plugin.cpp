#include <class_loader/class_loader.hpp>

#include "csrt_tracking_algo.h"

CLASS_LOADER_REGISTER_CLASS(CSRTTrackingAlgo, IAlgoPlugin)
