// Refusals and answers of the kernel that a machine rarely gives. The linker sends the calls of
// this test program through the double.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tiv::test {

// While it lives, `count` calls of the function fail with `error` after `skip` calls went through.
// Known are accept4, bind, chmod, connect, getsockopt, lchown, mmap, poll, read, readlink, recvmsg,
// sendmsg, setsockopt and socket. One at a time.
class RefusedCall {
 public:
    explicit RefusedCall(const char* function, int error, int count = 1, int skip = 0);
    ~RefusedCall();
    RefusedCall(const RefusedCall&) = delete;
    RefusedCall& operator=(const RefusedCall&) = delete;

    // Calls that have failed so far.
    static int Count();

    // Waits until a call has failed; false when none does within ten seconds.
    static bool WaitForOne();
};

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
};

// Milliseconds that polls without a descriptor waited in this test.
std::vector<int> Pauses();

}  // namespace tiv::test
