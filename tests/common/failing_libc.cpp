// The C library functions in front of the real ones, which fail on demand.
#include "common/failing_libc.h"

#include <pwd.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

namespace {

std::string failing;
int toFail = 0;
int toPass = 0;
std::vector<std::string> linksRead;
bool homeIsGiven = false;
const char* givenHome = nullptr;

bool Fails(const char* function) {
    if (failing != function || toFail == 0) {
        return false;
    }
    if (toPass > 0) {
        --toPass;
        return false;
    }
    --toFail;
    errno = EIO;
    return true;
}

}  // namespace

namespace tiv::test {

FailingCall::FailingCall(const std::string& function, int count, int skip) {
    failing = function;
    toFail = count;
    toPass = skip;
}

FailingCall::~FailingCall() { failing.clear(); }

HomeInDatabase::HomeInDatabase(const char* home) {
    homeIsGiven = true;
    givenHome = home;
}

HomeInDatabase::~HomeInDatabase() { homeIsGiven = false; }

std::vector<std::string> LinksRead() { return linksRead; }

}  // namespace tiv::test

extern "C" {

int __real_fileno(FILE* file);
int __real_flock(int fd, int operation);
int __real_lstat(const char* path, struct stat* buffer);
ssize_t __real_readlink(const char* path, char* buffer, size_t size);
char* __real_strdup(const char* text);
struct passwd* __real_getpwuid(uid_t uid);

int __wrap_fileno(FILE* file);
int __wrap_flock(int fd, int operation);
int __wrap_lstat(const char* path, struct stat* buffer);
ssize_t __wrap_readlink(const char* path, char* buffer, size_t size);
char* __wrap_strdup(const char* text);
struct passwd* __wrap_getpwuid(uid_t uid);

int __wrap_fileno(FILE* file) { return Fails("fileno") ? -1 : __real_fileno(file); }

int __wrap_flock(int fd, int operation) {
    return Fails("flock") ? -1 : __real_flock(fd, operation);
}

int __wrap_lstat(const char* path, struct stat* buffer) {
    return Fails("lstat") ? -1 : __real_lstat(path, buffer);
}

ssize_t __wrap_readlink(const char* path, char* buffer, size_t size) {
    linksRead.emplace_back(path);
    return Fails("readlink") ? -1 : __real_readlink(path, buffer, size);
}

char* __wrap_strdup(const char* text) { return Fails("strdup") ? nullptr : __real_strdup(text); }

struct passwd* __wrap_getpwuid(uid_t uid) {
    static struct passwd record = {};
    if (!homeIsGiven) {
        return __real_getpwuid(uid);
    }
    record.pw_dir = const_cast<char*>(givenHome);
    return givenHome == nullptr ? nullptr : &record;
}
}
