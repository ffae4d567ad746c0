#include "OS/VlErrFromHresult.h"
#include "util/linux/platform.h"

#include "../OS/VlErrFromHresult.inc"
