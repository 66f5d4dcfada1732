// What the first touch of memory costs: buffers that wait in a queue are fresh memory until the
// queue has been full once.
//
// usage: fresh_memory [GIB]      6 without an argument
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench/usage.h"

namespace {

using tiv::bench::Clock;
using tiv::bench::GB;
using tiv::bench::Median;
using tiv::bench::SecondsSince;

constexpr size_t DEFAULT_GIB = 6;
constexpr size_t PAGE_BYTES = 4096;
constexpr unsigned IDLE_SECONDS = 15;
constexpr int ROUNDS = 3;

struct Speed {
    double firstTouch = 0;  // GB/s
    double again = 0;
};

// Maps `bytes`, touches every page, fills it all and gives it back.
Speed TouchAll(size_t bytes, bool isLarge) {
    void* const memory =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        std::perror("no memory");
        std::exit(EXIT_FAILURE);
    }
    (void)madvise(memory, bytes, isLarge ? MADV_HUGEPAGE : MADV_NOHUGEPAGE);
    auto* const first = static_cast<volatile char*>(memory);
    Speed speed;
    Clock::time_point start = Clock::now();
    for (size_t at = 0; at < bytes; at += PAGE_BYTES) {
        first[at] = 1;
    }
    speed.firstTouch = static_cast<double>(bytes) / GB / SecondsSince(start);
    start = Clock::now();
    std::memset(memory, 2, bytes);
    speed.again = static_cast<double>(bytes) / GB / SecondsSince(start);
    (void)munmap(memory, bytes);
    return speed;
}

void Measure(size_t bytes, bool isLarge) {
    std::vector<double> idle;
    std::vector<double> warm;
    std::vector<double> again;
    for (int round = 0; round < ROUNDS; ++round) {
        (void)sleep(IDLE_SECONDS);
        idle.push_back(TouchAll(bytes, isLarge).firstTouch);
        const Speed speed = TouchAll(bytes, isLarge);
        warm.push_back(speed.firstTouch);
        again.push_back(speed.again);
    }
    std::printf(
        "%s pages: first touch of memory that lay free for %u s %.2f GB/s, that was freed "
        "just before %.2f GB/s; filled again %.2f GB/s\n",
        isLarge ? "large" : "small", IDLE_SECONDS, Median(idle), Median(warm), Median(again));
}

}  // namespace

int main(int argc, char** argv) {
    const size_t gib = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : DEFAULT_GIB;
    if (gib == 0) {
        std::fprintf(stderr, "usage: fresh_memory [GIB]\n");
        return EXIT_FAILURE;
    }
    Measure(gib << 30, true);
    Measure(gib << 30, false);
    return EXIT_SUCCESS;
}
