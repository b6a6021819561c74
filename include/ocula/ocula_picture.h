// The frame class under the name the host framework gives it, <ocula/ocula_picture.h>. The stand-in lies in ocula/.
#pragma once

#include "../../ocula/ocula_picture.h"
