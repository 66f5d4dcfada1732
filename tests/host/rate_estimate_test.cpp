// Weighing of samples, on a /proc of the test's own.
#include "host/rate_estimate.h"

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace tiv::host {
namespace {

using namespace std::chrono_literals;

// Frame and data of one record: the frame's keys, newlines and typical digits come to 50 bytes.
constexpr uint64_t FRAME = 50;

class RateEstimate : public testing::Test {
 protected:
    RateEstimate() {
        proc.Write("stat", "cpu  10\ncpu0 4\ncpu1 6\nintr 5\n");
        proc.Write("meminfo", "MemTotal: 1\n");
    }
    void AddProcess(const std::string& pid) const {
        proc.MakeDir(pid);
        proc.Write(pid + "/stat", "1234567890\n");
        proc.Write(pid + "/statm", "1 2\n");
        proc.Write(pid + "/comm", "sh\n");
    }
    static DeviceJob Job(std::vector<std::string> samplers) {
        DeviceJob job;
        job.samplers = std::move(samplers);
        return job;
    }

    const test::TempDir proc;
};

}  // namespace

TEST_F(RateEstimate, SystemFilesWeighTheirLinesAndAFrame) {
    const SampleSizes sizes = MeasureSamples(proc.Path());

    EXPECT_EQ(sizes.cpus, 2u);
    EXPECT_EQ(sizes.cpu, 8u + 7u + 7u + FRAME);
    EXPECT_EQ(sizes.memory, 12u + FRAME);
    EXPECT_EQ(sizes.processesAlive, 0u);
    EXPECT_EQ(sizes.processes, 0u);
}

TEST_F(RateEstimate, ProcessesWeighTwoRecordsEachWithNameAndTotal) {
    AddProcess("17");
    AddProcess("4711");
    proc.MakeDir("self");

    const SampleSizes sizes = MeasureSamples(proc.Path());

    constexpr uint64_t NAME = 12 + 3;
    EXPECT_EQ(sizes.processesAlive, 2u);
    EXPECT_EQ(sizes.processes, 2 * (11 + NAME + 8 + FRAME + 4 + NAME + FRAME));
}

TEST_F(RateEstimate, ProcessWhoseFileIsOpenedAndCannotBeReadCountsAsNothing) {
    proc.MakeDir("17/stat");  // opens, and fails at the first byte, as one of an ended process
    proc.Write("17/statm", "1 2\n");

    EXPECT_EQ(MeasureSamples(proc.Path()).processesAlive, 0u);
}

TEST_F(RateEstimate, ProcessThatHasGoneCountsAsNothing) {
    proc.MakeDir("17");

    EXPECT_EQ(MeasureSamples(proc.Path()).processesAlive, 0u);
}

TEST_F(RateEstimate, ProcessThatGoesBetweenItsTwoFilesCountsAsNothing) {
    AddProcess("17");
    AddProcess("4711");
    proc.Write("17/stat", "");
    proc.Write("4711/statm", "");

    EXPECT_EQ(MeasureSamples(proc.Path()).processesAlive, 0u);
}

TEST_F(RateEstimate, RateIsBytesOverInterval) {
    SampleSizes sizes;
    sizes.cpu = 100;
    sizes.memory = 1000;

    const auto rates = EstimateRates(Job({"cpu", "memory"}), 250ms, sizes);

    ASSERT_EQ(rates.size(), 2u);
    EXPECT_DOUBLE_EQ(rates[0].bytesPerSecond, 400);
    EXPECT_DOUBLE_EQ(rates[1].bytesPerSecond, 4000);
    EXPECT_TRUE(rates[1].known);
}

TEST_F(RateEstimate, WhatDependsOnTheCardIsUnknown) {
    const auto rates = EstimateRates(Job({"llc", "ctrl-cpu"}), 100ms, MeasureSamples(proc.Path()));

    ASSERT_EQ(rates.size(), 2u);
    EXPECT_FALSE(rates[0].known);
    EXPECT_FALSE(rates[1].known);
}

TEST_F(RateEstimate, MachineWithoutProcBringsNothingKnown) {
    const SampleSizes sizes = MeasureSamples(proc.Path("nothing"));

    EXPECT_FALSE(EstimateRates(Job({"cpu"}), 100ms, sizes)[0].known);
}

}  // namespace tiv::host
