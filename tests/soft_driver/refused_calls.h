// Refusals and answers of the kernel that a machine rarely gives. The linker sends the calls of
// this test program through the doubles. Refused can be accept4, bind, chmod, connect, flock,
// getsockopt, lchown, listen, lstat, mmap, poll, read, readlink, recvmsg, sendmsg, setsockopt,
// socket, unlink and, on a CountingMachine, syscall.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "support/refused_call.h"

namespace tiv::test {

// While it lives, the peer of every socket is a member of these groups.
class GroupsOfPeers {
 public:
    explicit GroupsOfPeers(std::vector<uint32_t> groups);
    ~GroupsOfPeers();
    GroupsOfPeers(const GroupsOfPeers&) = delete;
    GroupsOfPeers& operator=(const GroupsOfPeers&) = delete;
};

// While it lives, the machine counts every event on its first CPU and has the others offline. It
// counts for all processes together and knows no groups of events.
class CountingMachine {
 public:
    CountingMachine();
    ~CountingMachine();
    CountingMachine(const CountingMachine&) = delete;
    CountingMachine& operator=(const CountingMachine&) = delete;

    // What the next reading of the counters gives; without one it fails.
    static void Give(uint64_t count, uint64_t enabledNs, uint64_t runningNs);
    // True when every value that was given has been read.
    static bool AllRead();
};

// While it lives, time passes in polls alone: the steady clock stands still, and a poll whose
// descriptor is not ready calls `meanwhile`, takes all of its time at once and looks again.
class TimeOfPolls {
 public:
    explicit TimeOfPolls(std::function<void()> meanwhile);
    ~TimeOfPolls();
    TimeOfPolls(const TimeOfPolls&) = delete;
    TimeOfPolls& operator=(const TimeOfPolls&) = delete;

    // Milliseconds that each poll took.
    static std::vector<int> Taken();
};

// Microseconds that sends may take on the sockets of this test, in the order they were told.
std::vector<int64_t> SendTimeouts();

// Milliseconds that polls without a descriptor waited in this test.
std::vector<int> Pauses();

}  // namespace tiv::test
