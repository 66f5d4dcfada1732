// The names of counters and the kernel's two numbers behind each.
#include "soft_driver/perf_events.h"

#include <gtest/gtest.h>

namespace tiv::test {
namespace {

using soft_driver::DefaultPerfEvents;
using soft_driver::FindPerfEvent;
using soft_driver::PerfEvent;

// "type:config" in hexadecimal digits.
std::string NumbersOf(const std::string& name) {
    const std::optional<PerfEvent> event = FindPerfEvent(name);
    char text[64] = "none";
    if (event.has_value()) {
        (void)snprintf(text, sizeof(text), "%x:%llx", event->type,
                       static_cast<unsigned long long>(event->config));
    }
    return text;
}

TEST(PerfEvents, HardwareNames) {
    EXPECT_EQ("0:0", NumbersOf("cpu-cycles"));
    EXPECT_EQ("0:1", NumbersOf("instructions"));
    EXPECT_EQ("0:2", NumbersOf("cache-references"));
    EXPECT_EQ("0:3", NumbersOf("cache-misses"));
    EXPECT_EQ("0:4", NumbersOf("branch-instructions"));
    EXPECT_EQ("0:5", NumbersOf("branch-misses"));
    EXPECT_EQ("0:6", NumbersOf("bus-cycles"));
    EXPECT_EQ("0:7", NumbersOf("stalled-cycles-frontend"));
    EXPECT_EQ("0:8", NumbersOf("stalled-cycles-backend"));
    EXPECT_EQ("0:9", NumbersOf("ref-cycles"));
}

TEST(PerfEvents, SoftwareNames) {
    EXPECT_EQ("1:0", NumbersOf("cpu-clock"));
    EXPECT_EQ("1:1", NumbersOf("task-clock"));
    EXPECT_EQ("1:2", NumbersOf("page-faults"));
    EXPECT_EQ("1:3", NumbersOf("context-switches"));
    EXPECT_EQ("1:4", NumbersOf("cpu-migrations"));
    EXPECT_EQ("1:5", NumbersOf("minor-faults"));
    EXPECT_EQ("1:6", NumbersOf("major-faults"));
    EXPECT_EQ("1:7", NumbersOf("alignment-faults"));
    EXPECT_EQ("1:8", NumbersOf("emulation-faults"));
}

TEST(PerfEvents, NamesOfCaches) {
    EXPECT_EQ("3:0", NumbersOf("L1-dcache-loads"));
    EXPECT_EQ("3:1", NumbersOf("L1-icache-loads"));
    EXPECT_EQ("3:2", NumbersOf("LLC-loads"));
    EXPECT_EQ("3:3", NumbersOf("dTLB-loads"));
    EXPECT_EQ("3:4", NumbersOf("iTLB-loads"));
    EXPECT_EQ("3:5", NumbersOf("branch-loads"));
    EXPECT_EQ("3:6", NumbersOf("node-loads"));
}

TEST(PerfEvents, NamesOfWhatACacheCounts) {
    EXPECT_EQ("3:10002", NumbersOf("LLC-load-misses"));
    EXPECT_EQ("3:102", NumbersOf("LLC-stores"));
    EXPECT_EQ("3:10102", NumbersOf("LLC-store-misses"));
    EXPECT_EQ("3:202", NumbersOf("LLC-prefetches"));
    EXPECT_EQ("3:10202", NumbersOf("LLC-prefetch-misses"));
}

TEST(PerfEvents, OtherNamesAreNone) {
    EXPECT_EQ("none", NumbersOf(""));
    EXPECT_EQ("none", NumbersOf("LLC"));
    EXPECT_EQ("none", NumbersOf("-loads"));
    EXPECT_EQ("none", NumbersOf("cpu-cycles:u"));
}

TEST(PerfEvents, DefaultsAreReadsAndWritesOfTheLastLevelCache) {
    EXPECT_EQ((std::vector<std::string>{"LLC-loads", "LLC-stores"}), DefaultPerfEvents());
}

}  // namespace
}  // namespace tiv::test
