// kalo-download-recovery: the web API server runs it after each background task that ended, and
// when it starts itself (webapi/mesh-upgrade.json names it).

#include <syslog.h>

#include "host/update/download/recovery.h"

int main() {
  openlog("kalo-download-recovery", 0, LOG_DAEMON);
  kalo::download::RecoverDownload();
  return 0;
}
