/* Every platform operation the library calls. The library includes this and include/ only. */
#ifndef ZAN_PLATFORM_H
#define ZAN_PLATFORM_H

#include "kol_mem.h"
#include "kol_msg.h"
#include "zan_cli.h"
#include "zan_frame.h"
#include "zan_plat_base.h"
#include "zan_rbt.h"

#endif
