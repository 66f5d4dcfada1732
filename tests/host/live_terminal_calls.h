// The calls of a screen to its terminal. The linker sends those of this test program through the
// double.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string_view>

namespace tiv::test {

// What stands in place of the calls; whatever is not set lets them through. A test sets it before
// the program under test calls.
struct TerminalCalls {
    std::function<ssize_t(int fd, std::string_view bytes)> write;
    std::function<void()> yield;
    std::function<void()> beforePoll;
    // True: the file is not opened, for want of permission.
    std::function<bool(std::string_view path)> refusesOpen;
    bool hasNoMode = false;  // the terminal has gone before its mode was read
};

// Those of this process.
TerminalCalls& Calls();

ssize_t RealWrite(int fd, std::string_view bytes);
void RealYield();

}  // namespace tiv::test
