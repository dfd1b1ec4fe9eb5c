// The daemon's start steps that a library build needs, on g_tDlnaInfo, for
// tests that build a library from real files: charset converter, state
// variables, the tree record and the profile registry; and their undoing.
#pragma once

#include <cstdio>
#include <string>

#include "content/library.h"
#include "content/metadata.h"
#include "core/dlna_dms.h"
#include "core/dms_main.h"
#include "platform/ctype.h"
#include "profile/profile.h"
#include "upnp/state_var.h"

inline void testLibraryStart() {
  ctypeInit(1, kCtypeDetect);
  dlnaInitVarValue();
  _dlnaInit(&g_tDlnaInfo);
  g_tDlnaInfo.registry = dlnaMMInit();
  dlnaSetExtCheck(g_tDlnaInfo.registry, 1);
  dlnaRegMediaProfile(g_tDlnaInfo.registry);
}

// Builds the library of the shared folders in `contentList` ('|'-separated).
inline void testLibraryBuild(const std::string& contentList) {
  snprintf(gtDmsCfg.szContentLst, sizeof gtDmsCfg.szContentLst, "%s", contentList.c_str());
  dlnaBuildMetaLst(&g_tDlnaInfo);
}

inline void testLibraryStop() {
  dlnaFreeMetaLst(&g_tDlnaInfo);
  dlnaMMUninit(g_tDlnaInfo.registry);
  g_tDlnaInfo.registry = nullptr;
  dlnaFreeVarValue();
}
