// Entry of the daemon program. It takes no arguments.
#include "daemon/ide_daemon.h"

int main() { return IdeDaemonRun(); }
