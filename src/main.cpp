// dmsd: the DLNA media server daemon.
#include "core/dms_main.h"

int main(int argc, char** argv) {
  return dmsMain(argc, argv);
}
