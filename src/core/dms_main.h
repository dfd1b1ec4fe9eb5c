// Reading the daemon's configuration, and the process's main flow.
#pragma once

#include "platform/config.h"

// Reads g_tDmsPaths.config into gtDmsCfg: 0, or -1 when the file cannot be
// opened for reading and writing or a text value is too long for its field.
int _InitDmsConf();

// The process: options, configuration, start, then the signal loop. Returns the
// exit status.
int dmsMain(int argc, char** argv);
