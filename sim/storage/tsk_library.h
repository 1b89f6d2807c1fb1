// The Sleuth Kit's headers, which define the words TRUE and FALSE as macros: the firmware's declarations use both as
// names, so they come first and the macros go again.
#pragma once

#include "platform/uefi_base.h"

#include <tsk/libtsk.h>

#undef TRUE
#undef FALSE
