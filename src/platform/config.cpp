// The configuration record's one instance; see config.h.
#include "platform/config.h"

DmsCfg gtDmsCfg;
DmsPaths g_tDmsPaths;
