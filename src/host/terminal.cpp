// Asking a terminal.
#include "host/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace tiv::host {

namespace {

constexpr size_t DEFAULT_COLUMNS = 80;

}  // namespace

bool IsPaintableTerminal(int fd) {
    const char* term = std::getenv("TERM");
    return isatty(fd) == 1 && (term == nullptr || std::strcmp(term, "dumb") != 0);
}

size_t TerminalColumns(int fd) {
    struct winsize size {};
    if (ioctl(fd, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
        return DEFAULT_COLUMNS;
    }
    return size.ws_col;
}

}  // namespace tiv::host
