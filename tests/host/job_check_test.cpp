// What a job may ask for: ranges of options and fields of the sample configuration.
#include "host/job_check.h"

#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "host/job_settings.h"
#include "support/recorded_log.h"

namespace tiv::host {
namespace {

using analysis::rokt::message::ProfileParams;
using namespace std::chrono_literals;

// The message of the only refusal; empty when nothing is refused.
std::string Refused(const std::function<void(CollectOptions&)>& ask) {
    CollectOptions options;
    ask(options);
    const std::vector<Refusal> refusals = CheckOptions(options);
    EXPECT_LE(refusals.size(), 1u);
    return refusals.empty() ? "" : refusals.front().message;
}

Refusal RefusedSetting(const std::string& name, const std::string& value) {
    ProfileParams params;
    const std::vector<Refusal> refusals = ApplySettings({{name, value}}, params);
    EXPECT_EQ(refusals.size(), 1u) << name << '=' << value;
    return refusals.empty() ? Refusal{} : refusals.front();
}

std::vector<Refusal> Apply(const std::string& name, const std::string& value,
                           ProfileParams& params) {
    return ApplySettings({{name, value}}, params);
}

}  // namespace

TEST(JobCheck, DurationIsAtMost30Days) {
    EXPECT_EQ(Refused([](auto& o) { o.duration = 720h; }), "");
    EXPECT_EQ(Refused([](auto& o) { o.duration = 0s; }), "");
    EXPECT_EQ(Refused([](auto& o) { o.duration = 720h + 1ms; }),
              "--duration 720h00m is out of range: 0s to 720h");
}

TEST(JobCheck, DrainTimeoutIs1SecondTo30Days) {
    EXPECT_EQ(Refused([](auto& o) { o.drainTimeout = 720h; }), "");
    EXPECT_EQ(Refused([](auto& o) { o.drainTimeout = 1s; }), "");
    EXPECT_EQ(Refused([](auto& o) { o.drainTimeout = 999ms; }),
              "--drain-timeout 999ms is out of range: 1s to 720h");
    EXPECT_EQ(Refused([](auto& o) { o.drainTimeout = 720h + 1ms; }),
              "--drain-timeout 720h00m is out of range: 1s to 720h");
}

TEST(JobCheck, ReplaysNeedADurationAndRoomForIt) {
    EXPECT_EQ(Refused([](auto& o) { o.repeat = 2; }),
              "--repeat needs --duration, the length of one replay");
    EXPECT_EQ(Refused([](auto& o) { o.every = 2s; }),
              "--every needs --duration, the length of one replay");
    EXPECT_EQ(Refused([](auto& o) {
                  o.duration = 2s;
                  o.every = 1s;
              }),
              "--every 1.0s is shorter than --duration: a replay begins when the one before has "
              "ended; write 2.0s or more");
    EXPECT_EQ(Refused([](auto& o) {
                  o.duration = o.every = 2s;
                  o.repeat = 10000;
              }),
              "");
}

TEST(JobCheck, NumberOfReplaysIs1To10000) {
    for (const int repeat : {0, -1, 10001}) {
        EXPECT_EQ(Refused([=](auto& o) {
                      o.duration = 1s;
                      o.repeat = repeat;
                  }),
                  "--repeat " + std::to_string(repeat) + " is out of range: 1 to 10000");
    }
}

TEST(JobCheck, CommandAndDurationExcludeEachOther) {
    EXPECT_NE(Refused([](auto& o) {
                  o.duration = 1s;
                  o.command = {"true"};
              }),
              "");
    EXPECT_EQ(Refused([](auto& o) { o.command = {"true"}; }), "");
}

TEST(JobCheck, UnitsHaveRanges) {
    EXPECT_EQ(Refused([](auto& o) { o.pageBytes = 65536; }), "");
    EXPECT_EQ(Refused([](auto& o) { o.pageBytes = 5000; }), "--page-size 5000 is no power of 2");
    EXPECT_EQ(Refused([](auto& o) { o.pageBytes = 512; }),
              "--page-size 512 is out of range: 1024 to 16777216");
    EXPECT_EQ(Refused([](auto& o) { o.ticksPerSecond = 0; }),
              "--tick-rate 0 is out of range: 1 to 1000000");
}

TEST(JobCheck, PageOutOfRangeIsToldOnce) {
    EXPECT_EQ(Refused([](auto& o) { o.pageBytes = 1000; }),
              "--page-size 1000 is out of range: 1024 to 16777216");
    EXPECT_EQ(Refused([](auto& o) { o.pageBytes = 16777217; }),
              "--page-size 16777217 is out of range: 1024 to 16777216");
}

TEST(JobCheck, EverythingWrongIsToldAtOnceWithOptionAndRange) {
    CollectOptions options;
    options.devices = {64};
    options.interval = 1ms;

    const std::vector<Refusal> refusals = CheckOptions(options);

    ASSERT_EQ(refusals.size(), 2u);
    EXPECT_EQ(refusals[0].option, "--device");
    EXPECT_EQ(refusals[0].allowed, "0 to 63");
    EXPECT_EQ(refusals[1].option, "--interval");
    EXPECT_EQ(refusals[1].allowed, "100ms to 4294ms");
}

TEST(JobCheck, WholeRecordIsHeldToTheRulesOfTheSampleConfiguration) {
    DeviceJob job;
    job.jobId = "good-1";
    job.params.devices = "0";
    EXPECT_TRUE(CheckJob(job).empty());
    job.params.ddr_interval = 0;

    const std::vector<Refusal> refusals = CheckJob(job);

    ASSERT_EQ(refusals.size(), 1u);
    EXPECT_TRUE(test::RecordedLog::Instance().Has('E', "invalid ddr interval: 0"));
    EXPECT_TRUE(test::RecordedLog::Instance().Has(
        'E', "[CheckProfilingParams]profiling interval is illegal"));
}

TEST(JobCheck, MetricsOfAJobAreThoseOfThePlatform) {
    DeviceJob job;
    job.jobId = "good-1";
    job.params.devices = "0";
    job.params.ai_core_metrics = "PipeUtilization";
    EXPECT_TRUE(CheckJob(job).empty());
    job.params.ai_core_metrics = "ScalarRatio";

    const std::vector<Refusal> refusals = CheckJob(job);

    ASSERT_EQ(refusals.size(), 1u);
    EXPECT_EQ(refusals[0].option, "--set");
}

TEST(JobCheck, JobIdHoldsLettersDigitsAndDashes) {
    DeviceJob job;
    job.jobId = "under_score";
    job.params.devices = "0";

    const std::vector<Refusal> refusals = CheckJob(job);

    ASSERT_EQ(refusals.size(), 1u);
    EXPECT_EQ(refusals[0].option, "job id");
}

TEST(JobCheck, EventsOfTheControlCpuAreHeldToTheirRuleInTheWholeJob) {
    DeviceJob job;
    job.jobId = "good-1";
    job.params.devices = "0";
    job.ctrlCpuEvents = {"cycles"};

    const std::vector<Refusal> refusals = CheckJob(job);

    ASSERT_EQ(refusals.size(), 1u);
    EXPECT_EQ(refusals[0].option, "--ctrl-cpu");
    EXPECT_EQ(refusals[0].message, "--ctrl-cpu: write at most 8 raw event numbers such as 0x11");
}

TEST(JobSettings, ValuesGoIntoTheirFieldsByType) {
    ProfileParams params;

    EXPECT_TRUE(Apply("app", "model_1.bin", params).empty());
    EXPECT_TRUE(Apply("llc_interval", "1000", params).empty());
    EXPECT_TRUE(Apply("storageLimit", "200MB", params).empty());

    EXPECT_EQ(params.app, "model_1.bin");
    EXPECT_EQ(params.llc_interval, 1000);
    EXPECT_EQ(params.storageLimit, "200MB");
    EXPECT_EQ(params.ddr_interval, 20);
}

TEST(JobSettings, LastOfANameCounts) {
    ProfileParams params;

    EXPECT_TRUE(ApplySettings({{"ddr_interval", "5"}, {"ddr_interval", "6"}}, params).empty());

    EXPECT_EQ(params.ddr_interval, 6);
}

TEST(JobSettings, FieldsOfTivctlAndUnknownOnesAreRefused) {
    EXPECT_EQ(RefusedSetting("sys_profiling", "on").message,
              "--set sys_profiling is not for you to set: write --cpu or --memory");
    EXPECT_EQ(RefusedSetting("job_id", "x").option, "--set job_id");
    EXPECT_EQ(RefusedSetting("nothing", "1").allowed, "a field of the sample configuration");
}

TEST(JobSettings, NoFieldThatIsTrueOrFalseIsToBeSet) {
    const nlohmann::json record = nlohmann::json::parse(ProfileParams().ToString());
    size_t fields = 0;
    for (const auto& [name, value] : record.items()) {
        if (value.is_boolean()) {
            ++fields;
            EXPECT_NE(std::string::npos,
                      RefusedSetting(name, "true").message.find(" is not for you to set: "))
                << name;
        }
    }
    EXPECT_LT(0u, fields);
}

TEST(JobSettings, ValuesOfTheWrongTypeAreRefused) {
    EXPECT_EQ(RefusedSetting("ddr_interval", "2147483648").allowed, "a whole number of 32 bits");
    EXPECT_EQ(RefusedSetting("ddr_interval", "").allowed, "a whole number of 32 bits");
    EXPECT_EQ(RefusedSetting("ddr_interval", "5x").allowed, "a whole number of 32 bits");
    for (const char* value : {"a\"b", "a\\b", "a\nb"}) {
        EXPECT_EQ(RefusedSetting("app_env", value).allowed,
                  "text without quotes, backslashes and control characters");
    }
}

TEST(JobSettings, EachRuleNamesWhatItAllows) {
    const std::vector<std::vector<std::string>> rules = {
        {"storageLimit", "199MB", "storage-limit should be in range [200,4294967295], end with MB"},
        {"instrProfilingFreq", "299", "instr_profiling_freq should be in range [300,30000] cycle"},
        {"roceInterval", "1296000001", "1 to 1296000000"},
        {"llc_interval", "1001", "1 to 1000"},
        {"hwts_log", "yes", "on, off or nothing"},
        {"host_sys", "gpu", "cpu, mem, disk, network, osrt or nothing"},
        {"host_sys_pid", "-1", "the id of a process that runs here"},
        {"fwkSchedule", "l2", "l0, l1 or off"},
        {"taskTrace", "l3", "on, off, l0, l1 or l2"},
        {"runtimeApi", "l0", "on or off"},
        {"zelnartx", "1", "on or off"},
        {"profiling_mode", "x", "def_mode, system-wide or nothing"},
        {"profiling_period", "0", "1 to 2592000 seconds"},
        {"app", "a b", "letters, digits, _, - and ."},
        {"llc_profiling_events", "a;b", "letters, digits, _, /, commas and blanks"},
    };
    for (const auto& rule : rules) {
        EXPECT_EQ(RefusedSetting(rule[0], rule[1]).allowed, rule[2]);
    }
}

TEST(JobSettings, EverySwitchIsOnOrOff) {
    for (const char* name : {"ts_task_track",      "ts_cpu_usage",
                             "ai_core_status",     "ts_timeline",
                             "ts_keypoint",        "ai_vector_status",
                             "ts_fw_training",     "hwts_log",
                             "hwts_log1",          "ts_memcpy",
                             "ai_core_profiling",  "aiv_profiling",
                             "ddr_profiling",      "vmlkProfiling",
                             "pcieProfiling",      "hbmProfiling",
                             "cpu_profiling",      "tsCpuProfiling",
                             "aiCtrlCpuProfiling", "hardware_mem",
                             "io_profiling",       "interconnection_profiling",
                             "vimg_profiling",     "nicProfiling",
                             "roceProfiling"}) {
        EXPECT_EQ(RefusedSetting(name, "yes").allowed, "on, off or nothing") << name;
    }
}

TEST(JobSettings, EveryIntervalHasARange) {
    for (const char* name :
         {"aiv_sampling_interval", "vmlkInterval", "pcieInterval", "roceInterval", "ddr_interval",
          "hbmInterval", "memInterval", "hardware_mem_sampling_interval", "io_sampling_interval",
          "interconnection_sampling_interval", "vimg_sampling_interval", "nicInterval",
          "aicore_sampling_interval"}) {
        EXPECT_EQ(RefusedSetting(name, "0").allowed, "1 to 1296000000") << name;
    }
}

TEST(JobSettings, EventListsHaveRules) {
    const std::vector<std::vector<std::string>> rules = {
        {"ai_core_profiling_events", "0x50F", "at most 10 events from 0x1 to 0x50E"},
        {"aiv_profiling_events", "0", "at most 10 events from 0x1 to 0x50E"},
        {"ddr_profiling_events", "bad", "at most 8 of read, write and master_id"},
        {"hbm_profiling_events", "master_id", "at most 8 of read and write"},
        {"l2CacheTaskProfilingEvents", "0x58", "at most 8 of 0x59 0x5b"},
        {"stars_acsq_task", "dsa,x", "some of dsa,vdec"},
        {"app_parameters", "a > b", "none of \"rm \""},
    };
    for (const auto& rule : rules) {
        EXPECT_EQ(RefusedSetting(rule[0], rule[1]).allowed.find(rule[2]), 0u) << rule[0];
    }
}

TEST(JobSettings, MetricsAreThoseOfThePlatform) {
    ProfileParams params;

    EXPECT_TRUE(Apply("ai_core_metrics", "PipeUtilization", params).empty());
    const std::string allowed = RefusedSetting("ai_core_metrics", "Speed").allowed;

    EXPECT_EQ(allowed.find("metrics type should be in [ArithmeticUtilization|PipeUtilization|"),
              0u);
    EXPECT_NE(allowed.find("; this platform lacks "), std::string::npos);
}

}  // namespace tiv::host
