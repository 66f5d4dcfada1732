// Doubles of the calls that the lock file makes past the OS abstraction.
#include "daemon/fake_system.h"

#include <fcntl.h>
#include <pwd.h>

#include <cerrno>
#include <cstdarg>

namespace {

constexpr int NO_COMMAND = -1;

std::string homeText;
struct passwd userRecord;
bool hasRecord = true;
int failingCommand = NO_COMMAND;

}  // namespace

namespace tiv::test {

void SetHome(const std::string& home) {
    homeText = home;
    userRecord.pw_dir = homeText.data();
    hasRecord = true;
}

void SetNullHome() {
    userRecord.pw_dir = nullptr;
    hasRecord = true;
}

void SetNoUserRecord() { hasRecord = false; }

void FailFileControl(int command) { failingCommand = command; }

}  // namespace tiv::test

// The program's own look-up comes before the system's.
extern "C" struct passwd* getpwuid(uid_t) { return hasRecord ? &userRecord : nullptr; }

// The linker sends every fcntl of the program here.
extern "C" int __real_fcntl(int fd, int command, ...);

extern "C" int __wrap_fcntl(int fd, int command, ...) {
    if (command == failingCommand) {
        errno = EACCES;
        return -1;
    }
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return __real_fcntl(fd, command, argument);
}
