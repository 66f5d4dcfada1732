// Keeps what a program has counted when a test ends it by SIGPROF. Only coverage builds link this.
//
// The runtime of the counters writes them when a program ends by itself, which a daemon doesn't.
// The program and each of its libraries count for themselves and have a copy of this each: the
// copies hand the signal on to the one before them, and the first ends the process.
#include <csignal>
#include <cstdlib>

extern "C" void __gcov_dump(void);

namespace {

struct sigaction earlier = {};

void DumpAndEnd(int signal) {
    __gcov_dump();
    if (earlier.sa_handler != SIG_DFL && earlier.sa_handler != SIG_IGN) {
        earlier.sa_handler(signal);
    }
    _Exit(128 + signal);
}

// Loaded libraries come before the program.
const bool installed = [] {
    struct sigaction action = {};
    action.sa_handler = DumpAndEnd;
    return sigaction(SIGPROF, &action, &earlier) == 0;
}();

}  // namespace
