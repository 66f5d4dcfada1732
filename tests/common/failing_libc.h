// Failures and answers of C library functions that the foundation calls directly. The linker sends
// the calls of this test program through the double.
#pragma once

#include <string>
#include <vector>

namespace tiv::test {

// While it lives, `count` calls of the function fail after `skip` calls went through. Known are
// fileno, flock, lstat, readlink and strdup. One at a time, for tests on one thread.
class FailingCall {
 public:
    explicit FailingCall(const std::string& function, int count = 1, int skip = 0);
    ~FailingCall();
    FailingCall(const FailingCall&) = delete;
    FailingCall& operator=(const FailingCall&) = delete;
};

// While it lives, the user database gives this home directory for every user; null: no such user.
class HomeInDatabase {
 public:
    explicit HomeInDatabase(const char* home);
    ~HomeInDatabase();
    HomeInDatabase(const HomeInDatabase&) = delete;
    HomeInDatabase& operator=(const HomeInDatabase&) = delete;
};

// Paths that readlink was asked for, in the order of the calls.
std::vector<std::string> LinksRead();

}  // namespace tiv::test
