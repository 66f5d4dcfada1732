// Tests of the checks on a whole sample configuration.
#include "config/param_validation.h"

#include "message/prof_params.h"
#include "support/failing_new.h"
#include "support/recorded_log_test.h"

namespace analysis::rokt::common::validation {

using message::ProfileParams;
using IntField = int32_t ProfileParams::*;
using TextField = std::string ProfileParams::*;
using Texts = std::vector<std::string>;

class RecordCheck : public tiv::test::RecordedLogTest {
 protected:
    RecordCheck() { params->devices = "all"; }

    // The error of a record whose one interval is 0; "valid" when there is none.
    std::string IntervalError(IntField field) {
        auto record = std::make_shared<ProfileParams>();
        (*record).*field = 0;
        log.Clear();
        if (check.CheckProfilingIntervalIsValid(record)) {
            return "valid";
        }
        return log.Texts('E').size() == 1 ? log.Texts('E')[0] : "not one error";
    }
    // The labels of the errors of a record whose intervals are 0 and are mended one by one.
    Texts LabelsWhileMending(const std::vector<IntField>& fields) {
        for (const IntField field : fields) {
            (*params).*field = 0;
        }
        Texts labels;
        for (const IntField field : fields) {
            log.Clear();
            EXPECT_FALSE(check.CheckProfilingIntervalIsValid(params));
            const std::string error = log.Texts('E').empty() ? "" : log.Texts('E')[0];
            labels.push_back(error.substr(8, error.find(" interval") - 8));
            (*params).*field = 1;
        }
        EXPECT_TRUE(check.CheckProfilingIntervalIsValid(params));
        return labels;
    }
    bool SwitchCounts(TextField field) {
        auto record = std::make_shared<ProfileParams>();
        (*record).*field = "ON";
        return !check.CheckProfilingSwitchIsValid(record);
    }
    bool CheckLimit(const std::string& limit) {
        params->storageLimit = limit;
        return check.CheckStorageLimit(params);
    }
    bool CheckParams(const std::set<std::string>& unsupported = {}) {
        return check.CheckProfilingParams(params, unsupported);
    }

    // The last error of a record that is not valid.
    std::string LastError() {
        log.Clear();
        return CheckParams() || log.Texts('E').empty() ? "none" : log.Texts('E').back();
    }

    const ParamValidation& check = ParamValidation::Instance();
    std::shared_ptr<ProfileParams> params = std::make_shared<ProfileParams>();
};

class StorageLimitCheck : public RecordCheck {};

TEST_F(RecordCheck, FreshIntervalsAreValid) {
    EXPECT_TRUE(check.CheckProfilingIntervalIsValid(params));
    EXPECT_TRUE(check.CheckProfilingIntervalIsValidTWO(params));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(RecordCheck, IntervalsOfTheFirstGroupHaveTheirLabels) {
    EXPECT_EQ(IntervalError(&ProfileParams::aiv_sampling_interval), "invalid aiv interval: 0");
    EXPECT_EQ(IntervalError(&ProfileParams::vmlkInterval), "invalid vmcl interval: 0");
    EXPECT_EQ(IntervalError(&ProfileParams::pcieInterval), "invalid pcie interval: 0");
    EXPECT_EQ(IntervalError(&ProfileParams::roceInterval), "invalid roce interval: 0");
    EXPECT_EQ(IntervalError(&ProfileParams::llc_interval), "invalid llc interval: 0");
    EXPECT_EQ(IntervalError(&ProfileParams::ddr_interval), "invalid ddr interval: 0");
    EXPECT_EQ(IntervalError(&ProfileParams::hbmInterval), "invalid hbm interval: 0");
    EXPECT_EQ(IntervalError(&ProfileParams::cpu_sampling_interval),
              "invalid cpu_profiling interval: 0");
}

TEST_F(RecordCheck, IntervalsOfTheSecondGroupHaveTheirLabels) {
    EXPECT_EQ(IntervalError(&ProfileParams::sys_sampling_interval),
              "invalid sys_profiling interval: 0");
    EXPECT_EQ(IntervalError(&ProfileParams::pid_sampling_interval),
              "invalid pid_profiling interval: 0");
    EXPECT_EQ(IntervalError(&ProfileParams::hardware_mem_sampling_interval),
              "invalid hardware_mem interval: 0");
    EXPECT_EQ(IntervalError(&ProfileParams::io_sampling_interval),
              "invalid io_profiling interval: 0");
    EXPECT_EQ(IntervalError(&ProfileParams::interconnection_sampling_interval),
              "invalid interconnection_profiling interval: 0");
    EXPECT_EQ(IntervalError(&ProfileParams::vimg_sampling_interval),
              "invalid vimg_profiling interval: 0");
    EXPECT_EQ(IntervalError(&ProfileParams::nicInterval), "invalid nicProfiling interval: 0");
    EXPECT_EQ(IntervalError(&ProfileParams::aicore_sampling_interval),
              "invalid aicore_profiling interval: 0");
}

TEST_F(RecordCheck, RoceIntervalIsCheckedUnderASecondLabelToo) {
    params->roceInterval = 0;

    EXPECT_FALSE(check.CheckProfilingIntervalIsValidTWO(params));

    EXPECT_EQ(log.Texts('E'), Texts{"invalid roceProfiling interval: 0"});
}

TEST_F(RecordCheck, FirstBadIntervalInOrderEndsTheCheck) {
    params->aicore_sampling_interval = 0;
    params->vmlkInterval = 0;
    params->sys_sampling_interval = 0;

    EXPECT_FALSE(check.CheckProfilingIntervalIsValid(params));
    EXPECT_EQ(log.Texts('E'), Texts{"invalid vmcl interval: 0"});
    log.Clear();
    EXPECT_FALSE(check.CheckProfilingIntervalIsValidTWO(params));
    EXPECT_EQ(log.Texts('E'), Texts{"invalid sys_profiling interval: 0"});
}

TEST_F(RecordCheck, IntervalsAreCheckedInTheirOrder) {
    const std::vector<IntField> fields = {&ProfileParams::aiv_sampling_interval,
                                          &ProfileParams::vmlkInterval,
                                          &ProfileParams::pcieInterval,
                                          &ProfileParams::roceInterval,
                                          &ProfileParams::llc_interval,
                                          &ProfileParams::ddr_interval,
                                          &ProfileParams::hbmInterval,
                                          &ProfileParams::cpu_sampling_interval,
                                          &ProfileParams::sys_sampling_interval,
                                          &ProfileParams::pid_sampling_interval,
                                          &ProfileParams::hardware_mem_sampling_interval,
                                          &ProfileParams::io_sampling_interval,
                                          &ProfileParams::interconnection_sampling_interval,
                                          &ProfileParams::vimg_sampling_interval,
                                          &ProfileParams::nicInterval,
                                          &ProfileParams::aicore_sampling_interval};

    const Texts labels = {"aiv",
                          "vmcl",
                          "pcie",
                          "roce",
                          "llc",
                          "ddr",
                          "hbm",
                          "cpu_profiling",
                          "sys_profiling",
                          "pid_profiling",
                          "hardware_mem",
                          "io_profiling",
                          "interconnection_profiling",
                          "vimg_profiling",
                          "nicProfiling",
                          "aicore_profiling"};

    EXPECT_EQ(LabelsWhileMending(fields), labels);
}

TEST_F(RecordCheck, RoceIntervalOfTheSecondGroupStandsBetweenNicAndAiCore) {
    params->nicInterval = 0;
    params->roceInterval = 0;
    params->aicore_sampling_interval = 0;

    EXPECT_FALSE(check.CheckProfilingIntervalIsValidTWO(params));
    params->nicInterval = 1;
    EXPECT_FALSE(check.CheckProfilingIntervalIsValidTWO(params));

    const Texts errors = {"invalid nicProfiling interval: 0", "invalid roceProfiling interval: 0"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(RecordCheck, UncheckedIntervalsMayBeAnything) {
    EXPECT_EQ(IntervalError(&ProfileParams::memInterval), "valid");
    EXPECT_EQ(IntervalError(&ProfileParams::profiling_period), "valid");
}

TEST_F(RecordCheck, NoRecordHasNoValidIntervals) {
    EXPECT_FALSE(check.CheckProfilingIntervalIsValid(nullptr));
    EXPECT_TRUE(log.Lines().empty());

    EXPECT_FALSE(check.CheckProfilingIntervalIsValidTWO(nullptr));
    EXPECT_EQ(log.Texts('E'), Texts{"[CheckProfilingIntervalIsValidTWO]params is null"});
}

TEST_F(RecordCheck, FreshSwitchesAreValid) {
    EXPECT_TRUE(check.CheckProfilingSwitchIsValid(params));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(RecordCheck, TenSwitchesOfTheTaskScheduler) {
    EXPECT_TRUE(SwitchCounts(&ProfileParams::ts_task_track));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::ts_cpu_usage));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::ai_core_status));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::ts_timeline));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::ts_keypoint));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::ai_vector_status));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::ts_fw_training));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::hwts_log));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::hwts_log1));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::ts_memcpy));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(RecordCheck, SixSwitchesOfTheCounters) {
    EXPECT_TRUE(SwitchCounts(&ProfileParams::ai_core_profiling));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::aiv_profiling));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::ddr_profiling));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::vmlkProfiling));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::pcieProfiling));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::hbmProfiling));
}

TEST_F(RecordCheck, ElevenSwitchesOfTheSystem) {
    EXPECT_TRUE(SwitchCounts(&ProfileParams::cpu_profiling));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::tsCpuProfiling));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::aiCtrlCpuProfiling));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::sys_profiling));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::pid_profiling));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::hardware_mem));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::io_profiling));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::interconnection_profiling));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::vimg_profiling));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::nicProfiling));
    EXPECT_TRUE(SwitchCounts(&ProfileParams::roceProfiling));
}

TEST_F(RecordCheck, OtherSwitchesMayHoldAnything) {
    EXPECT_FALSE(SwitchCounts(&ProfileParams::llc_profiling));
    EXPECT_FALSE(SwitchCounts(&ProfileParams::taskTrace));
}

TEST_F(RecordCheck, EachGroupLooksAtItsOwnSwitches) {
    params->ts_memcpy = "x";
    EXPECT_FALSE(check.CheckTsSwitchProfiling(params));
    EXPECT_TRUE(check.CheckPmuSwitchProfiling(params));
    EXPECT_TRUE(check.CheckSystemTraceSwitchProfiling(params));
    params->ts_memcpy = "on";
    params->hbmProfiling = "x";
    EXPECT_TRUE(check.CheckTsSwitchProfiling(params));
    EXPECT_FALSE(check.CheckPmuSwitchProfiling(params));
    EXPECT_TRUE(check.CheckSystemTraceSwitchProfiling(params));
}

TEST_F(RecordCheck, NoRecordHasNoValidSwitches) {
    EXPECT_FALSE(check.CheckProfilingSwitchIsValid(nullptr));
    EXPECT_FALSE(check.CheckTsSwitchProfiling(nullptr));
    EXPECT_FALSE(check.CheckPmuSwitchProfiling(nullptr));
    EXPECT_TRUE(log.Lines().empty());

    EXPECT_FALSE(check.CheckSystemTraceSwitchProfiling(nullptr));
    EXPECT_EQ(log.Texts('E'), Texts{"[CheckSystemTraceSwitchProfiling]params is null"});
}

TEST_F(RecordCheck, FreshRecordForAllDevicesIsValid) {
    EXPECT_TRUE(CheckParams());
    EXPECT_TRUE(log.Texts('E').empty());
}

TEST_F(RecordCheck, NoRecordIsNotValid) {
    EXPECT_FALSE(check.CheckProfilingParams(nullptr, {}));

    EXPECT_EQ(log.Texts('E'), Texts{"[CheckProfilingParams]params is nullptr."});
}

TEST_F(RecordCheck, DevicesAreCheckedUnlessTheHostIsProfiled) {
    params->devices = "64";

    EXPECT_FALSE(CheckParams());
    EXPECT_EQ(log.Texts('E').back(), "[CheckProfilingParams]devices:64 is illegal");

    params->hostProfiling = true;
    EXPECT_TRUE(CheckParams());
}

TEST_F(RecordCheck, ApplicationAndHostListStandInForDevices) {
    params->devices = "";
    EXPECT_FALSE(CheckParams());
    params->app = "a";
    EXPECT_TRUE(CheckParams());
    params->app = "";
    params->host_sys = "cpu";
    EXPECT_TRUE(CheckParams());
}

TEST_F(RecordCheck, L2EventsAreSplitAtCommas) {
    params->l2CacheTaskProfilingEvents = "0xF6,0xFB,0xFC,0xBF,0x90,0x91,0x9C,0x9D";
    EXPECT_TRUE(CheckParams());

    params->l2CacheTaskProfilingEvents = "0xF6,0x1";
    EXPECT_FALSE(CheckParams());
    EXPECT_EQ(log.Texts('E').back(), "[CheckProfilingParams]l2CacheTaskProfilingEvents is illegal");
}

TEST_F(RecordCheck, WithoutMemoryForTheEventsTheRecordPasses) {
    params->l2CacheTaskProfilingEvents = "bad";
    bool valid = false;
    {
        tiv::test::FailingNew failing;
        valid = check.CheckProfilingParams(params, std::set<std::string>());
    }

    EXPECT_TRUE(valid);
    EXPECT_EQ(log.Texts('E'), Texts{"make shared failed, message: std::bad_alloc"});
}

TEST_F(RecordCheck, LlcEventsAreChecked) {
    params->llc_profiling_events = "a.b";

    EXPECT_FALSE(CheckParams());

    const Texts errors = {"llc events is invalid.a.b",
                          "[CheckProfilingParams]llc_profiling_events is illegal"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(RecordCheck, IntervalsAreChecked) {
    params->nicInterval = 0;

    EXPECT_FALSE(CheckParams());

    const Texts errors = {"invalid nicProfiling interval: 0",
                          "[CheckProfilingParams]profiling interval is illegal"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(RecordCheck, SwitchesAreChecked) {
    params->hwts_log1 = "x";

    EXPECT_FALSE(CheckParams());

    EXPECT_EQ(log.Texts('E'), Texts{"[CheckProfilingParams]profiling switch is illegal"});
}

TEST_F(RecordCheck, MetricsAreChecked) {
    params->ai_core_metrics = "Memory";
    EXPECT_TRUE(CheckParams());
    EXPECT_FALSE(CheckParams({"Memory"}));

    const Texts errors = {"Current platform is not support Memory metrics type",
                          "[CheckProfilingParams]profiling ai_core_metrics is illegal"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(RecordCheck, FirstFaultInOrderEndsTheCheck) {
    params->l2CacheTaskProfilingEvents = "bad";
    params->llc_profiling_events = "a.b";
    params->nicInterval = 0;
    params->hwts_log = "x";

    EXPECT_FALSE(CheckParams());

    const Texts errors = {"l2Cacheevent:bad is invalid",
                          "[CheckProfilingParams]l2CacheTaskProfilingEvents is illegal"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(RecordCheck, EachFaultHidesTheLaterOnes) {
    params->devices = "64";
    params->l2CacheTaskProfilingEvents = "bad";
    params->llc_profiling_events = "a.b";
    params->nicInterval = 0;
    params->hwts_log = "x";
    params->ai_core_metrics = "Nope";

    EXPECT_EQ(LastError(), "[CheckProfilingParams]devices:64 is illegal");
    params->devices = "63";
    EXPECT_EQ(LastError(), "[CheckProfilingParams]l2CacheTaskProfilingEvents is illegal");
    params->l2CacheTaskProfilingEvents = "";
    EXPECT_EQ(LastError(), "[CheckProfilingParams]llc_profiling_events is illegal");
    params->llc_profiling_events = "";
    EXPECT_EQ(LastError(), "[CheckProfilingParams]profiling interval is illegal");
    params->nicInterval = 1;
    EXPECT_EQ(LastError(), "[CheckProfilingParams]profiling switch is illegal");
    params->hwts_log = "";
    EXPECT_EQ(LastError(), "[CheckProfilingParams]profiling ai_core_metrics is illegal");
}

TEST_F(StorageLimitCheck, EmptyPasses) {
    EXPECT_TRUE(CheckLimit(""));

    EXPECT_EQ(log.Texts('I'), Texts{"storage_limit is empty"});
}

TEST_F(StorageLimitCheck, RangeIs200To4294967295) {
    EXPECT_TRUE(CheckLimit("200MB"));
    EXPECT_TRUE(CheckLimit("4294967295MB"));
    EXPECT_TRUE(CheckLimit("0200MB"));
    EXPECT_EQ(params->storageLimit, "0200MB");
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(StorageLimitCheck, TooShortComesFirst) {
    EXPECT_FALSE(CheckLimit("MB"));
    EXPECT_FALSE(CheckLimit("5"));

    const Texts errors = {"storage_limit:MB, length is less than 3",
                          "storage_limit:5, length is less than 3"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(StorageLimitCheck, UnitComesSecond) {
    EXPECT_FALSE(CheckLimit("200mb"));
    EXPECT_FALSE(CheckLimit("x200GB"));

    const Texts errors = {"storage_limit:200mb, not end with MB",
                          "storage_limit:x200GB, not end with MB"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(StorageLimitCheck, DigitsComeThird) {
    EXPECT_FALSE(CheckLimit("-200MB"));
    EXPECT_FALSE(CheckLimit("1234567890aMB"));

    const Texts errors = {"storage_limit:-200MB, invalid numbers",
                          "storage_limit:1234567890aMB, invalid numbers"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(StorageLimitCheck, ElevenDigitsAreTooMany) {
    EXPECT_FALSE(CheckLimit("12345678901MB"));
    EXPECT_FALSE(CheckLimit("00000000100MB"));

    const Texts errors = {"storage_limit:12345678901MB, valid range is 200~4294967296",
                          "storage_limit:00000000100MB, valid range is 200~4294967296"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(StorageLimitCheck, TooSmallIsRaisedAndStillNotValid) {
    EXPECT_FALSE(CheckLimit("199MB"));

    EXPECT_EQ(params->storageLimit, "200MB");
    EXPECT_EQ(log.Texts('E'), Texts{"storage_limit:199MB, min value is 200MB"});
    EXPECT_EQ(log.Texts('W'), Texts{"auto adjust storage_limit to:200MB"});
}

TEST_F(StorageLimitCheck, TooLargeStays) {
    EXPECT_FALSE(CheckLimit("4294967296MB"));

    EXPECT_EQ(params->storageLimit, "4294967296MB");
    EXPECT_EQ(log.Texts('E'), Texts{"storage_limit:4294967296MB, max value is 4294967295MB"});
}

TEST_F(StorageLimitCheck, NoRecordIsNotValid) { EXPECT_FALSE(check.CheckStorageLimit(nullptr)); }

}  // namespace analysis::rokt::common::validation
