// From the user's options to jobs.
#include "host/job_plan.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tiv::host;

namespace {

CollectOptions OnDevices(std::vector<int> devices) {
    CollectOptions options;
    options.devices = std::move(devices);
    return options;
}

// What is refused first; empty for a good plan.
std::string ErrorOf(const JobPlan& plan) {
    return plan.Good() ? "" : plan.refusals.front().message;
}

std::string ErrorOf(const CollectOptions& options) { return ErrorOf(MakeJobPlan(options, "base")); }

}  // namespace

TEST(JobPlan, WithoutSamplersAllThreeAreAskedFor) {
    const JobPlan plan = MakeJobPlan(OnDevices({0}), "base");

    EXPECT_EQ(ErrorOf(plan), "");
    ASSERT_EQ(plan.jobs.size(), 1u);
    const auto& params = plan.jobs[0].params;
    EXPECT_EQ(params.sys_profiling, "on");
    EXPECT_EQ(params.zelnar, "off");
    EXPECT_EQ(params.pid_profiling, "on");
    EXPECT_EQ(plan.jobs[0].samplers, (std::vector<std::string>{"cpu", "memory", "processes"}));
}

TEST(JobPlan, CpuAloneTakesTheMemorySamplerOut) {
    CollectOptions options = OnDevices({0});
    options.cpu = true;

    const JobPlan plan = MakeJobPlan(options, "base");

    ASSERT_EQ(plan.jobs.size(), 1u);
    EXPECT_EQ(plan.jobs[0].params.sys_profiling, "on");
    EXPECT_EQ(plan.jobs[0].params.zelnar, "on");
    EXPECT_EQ(plan.jobs[0].params.pid_profiling, "off");
}

TEST(JobPlan, MemoryBringsTheCpuUseAlong) {
    CollectOptions options = OnDevices({0});
    options.memory = true;

    const JobPlan plan = MakeJobPlan(options, "base");

    ASSERT_EQ(plan.jobs.size(), 1u);
    EXPECT_EQ(plan.jobs[0].samplers, (std::vector<std::string>{"cpu", "memory"}));
    EXPECT_EQ(plan.jobs[0].params.zelnar, "off");
}

TEST(JobPlan, OneIdStandsInTheJobAndInItsConfiguration) {
    const JobPlan plan = MakeJobPlan(OnDevices({3}), "base-7");

    ASSERT_EQ(plan.jobs.size(), 1u);
    EXPECT_EQ(plan.jobs[0].jobId, "base-7-3");
    EXPECT_EQ(plan.jobs[0].params.job_id, "base-7-3");
    EXPECT_NE(plan.jobs[0].configText.find("\"base-7-3\""), std::string::npos);
}

TEST(JobPlan, IntervalGoesToEverySampler) {
    CollectOptions options = OnDevices({0});
    options.interval = std::chrono::milliseconds(250);

    const JobPlan plan = MakeJobPlan(options, "base");

    ASSERT_EQ(plan.jobs.size(), 1u);
    EXPECT_EQ(plan.jobs[0].params.cpu_sampling_interval, 250);
    EXPECT_EQ(plan.jobs[0].params.sys_sampling_interval, 250);
    EXPECT_EQ(plan.jobs[0].params.pid_sampling_interval, 250);
}

TEST(JobPlan, IntervalOutsideTheDaemonsRangeIsRefused) {
    CollectOptions options = OnDevices({0});
    for (const int interval : {0, 99, 4295}) {
        options.interval = std::chrono::milliseconds(interval);
        EXPECT_EQ(ErrorOf(options),
                  "--interval " + std::to_string(interval) + "ms is out of range: 100ms to 4294ms");
    }
    options.interval = std::chrono::milliseconds(4294);
    EXPECT_EQ(ErrorOf(options), "");
}

TEST(JobPlan, RecorderAloneTakes1To1000Milliseconds) {
    CollectOptions options = OnDevices({0});
    options.ctrlCpuEvents = {"0x11"};
    for (const int interval : {0, 1001}) {
        options.interval = std::chrono::milliseconds(interval);
        EXPECT_EQ(ErrorOf(options),
                  "--interval " + std::to_string(interval) + "ms is out of range: 1ms to 1000ms");
    }
    for (const int interval : {1, 1000}) {
        options.interval = std::chrono::milliseconds(interval);
        EXPECT_EQ(ErrorOf(options), "");
        EXPECT_EQ(MakeJobPlan(options, "base").jobs[0].params.cpu_sampling_interval, interval);
    }
}

TEST(JobPlan, RecorderBesideASamplerTakes100To1000Milliseconds) {
    CollectOptions options = OnDevices({0});
    options.ctrlCpuEvents = {"0x11"};
    options.processes = true;
    for (const int interval : {99, 1001}) {
        options.interval = std::chrono::milliseconds(interval);
        EXPECT_EQ(ErrorOf(options),
                  "--interval " + std::to_string(interval) + "ms is out of range: 100ms to 1000ms");
    }
    options.interval = std::chrono::milliseconds(100);
    EXPECT_EQ(ErrorOf(options), "");
}

TEST(JobPlan, DeviceNumbersAre0To63AndNamedOnce) {
    EXPECT_EQ(ErrorOf(OnDevices({64})),
              "--device 64 is out of range: devices are numbered 0 to 63");
    EXPECT_EQ(ErrorOf(OnDevices({-1})),
              "--device -1 is out of range: devices are numbered 0 to 63");
    EXPECT_EQ(ErrorOf(OnDevices({2, 2})), "--device 2 is named twice: name each device once");
    EXPECT_EQ(ErrorOf(OnDevices({63})), "");
    EXPECT_NE(ErrorOf(OnDevices({})), "");
}

TEST(JobPlan, SecondDeviceWithNothingToDoIsRefused) {
    const JobPlan plan = MakeJobPlan(OnDevices({1, 4}), "base");

    EXPECT_EQ(ErrorOf(plan),
              "device 4 would have nothing to do: cpu, memory and processes are sampled once for "
              "the whole system, by the first device named (device 1); leave --device 4 out");
}

TEST(JobPlan, CacheEventsGoToEveryDeviceAndSamplersToTheFirst) {
    CollectOptions options = OnDevices({0, 1});
    options.cpu = true;
    options.llcEvents = {"read"};

    const JobPlan plan = MakeJobPlan(options, "base");

    ASSERT_EQ(plan.jobs.size(), 2u);
    EXPECT_EQ(plan.jobs[0].samplers, (std::vector<std::string>{"cpu", "llc"}));
    EXPECT_EQ(plan.jobs[1].samplers, (std::vector<std::string>{"llc"}));
    EXPECT_EQ(plan.jobs[1].llcEvents, (std::vector<std::string>{"read"}));
    EXPECT_EQ(plan.jobs[1].params.zelnar_llc_profiling, "on");
    EXPECT_EQ(plan.jobs[1].params.sys_profiling, "off");
}

TEST(JobPlan, CacheEventsAloneBringNoSampler) {
    CollectOptions options = OnDevices({0});
    options.llcEvents = {"write"};

    const JobPlan plan = MakeJobPlan(options, "base");

    ASSERT_EQ(plan.jobs.size(), 1u);
    EXPECT_EQ(plan.jobs[0].samplers, (std::vector<std::string>{"llc"}));
}

TEST(JobPlan, ControlCpuEventsGoToTheFirstDevice) {
    CollectOptions options = OnDevices({0});
    options.ctrlCpuEvents = {"0x11", "0x3C"};

    const JobPlan plan = MakeJobPlan(options, "base");

    ASSERT_EQ(plan.jobs.size(), 1u);
    EXPECT_EQ(plan.jobs[0].ctrlCpuEvents, options.ctrlCpuEvents);
    EXPECT_EQ(plan.jobs[0].params.sys_profiling, "off");
}

TEST(JobPlan, OtherEventsAreRefused) {
    CollectOptions options = OnDevices({0});
    options.llcEvents = {"miss"};
    EXPECT_EQ(ErrorOf(options),
              "--llc miss is no event: the last-level cache counts read or write");
    options.llcEvents.clear();
    for (const char* event : {"11", "0x", "0x11 -o /etc/passwd", "x0x11"}) {
        options.ctrlCpuEvents = {event};
        EXPECT_EQ(ErrorOf(options), std::string("--ctrl-cpu ") + event +
                                        " is no event: write raw event numbers such as 0x11");
    }
    options.ctrlCpuEvents.assign(9, "0x1");
    EXPECT_EQ(ErrorOf(options), "--ctrl-cpu names 9 events: at most 8 are counted at a time");
}

TEST(JobIdBase, HoldsOnlyWhatADeviceAccepts) {
    const std::string id = MakeJobIdBase();

    EXPECT_FALSE(id.empty());
    EXPECT_EQ(
        id.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-"),
        std::string::npos);
}
