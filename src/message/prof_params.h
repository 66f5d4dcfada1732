// The sample configuration: what a job is asked to collect.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "message/base_info.h"

namespace analysis::rokt::message {

// Carried as text in JobStartReq.SampleConfig and shared, key for key, with the host tools. A
// field's name is its key, in whatever style the tools chose. Most fields are only carried: the
// device reads some dozen of them and has to hand the others on unchanged.
//
// A switch is a text that is compared with "on"; anything else, "ON" included, is off. Nothing is
// validated here. One record per job is shared by all its jobs, which only read it.
struct ProfileParams : public BaseInfo {
    void ToObject(Json& object) const override;
    void FromObject(const Json& object) override;
    [[nodiscard]] std::string GetClassName() const override;

    // The job and the host tool that asked for it.
    std::string job_id;
    std::string result_dir;
    std::string storageLimit;
    std::string profiling_mode;  // not consulted: the handshake names the mode that counts
    std::string devices;
    int32_t zelnarBinPid = -1;
    bool isCancel = false;
    int32_t profiling_period = -1;
    std::string stream_enabled = "on";
    std::string profiling_options;
    std::string jobInfo;

    // The application under profile.
    std::string app;
    std::string app_dir;
    std::string app_parameters;
    std::string app_location;
    std::string app_env;
    std::string extraText0;  // held for the host tool, never in the text

    // AI core and AI vector core.
    std::string ai_core_profiling;
    int32_t aicore_sampling_interval = 10;
    std::string ai_core_profiling_mode;
    std::string ai_core_profiling_events;
    std::string ai_core_metrics;
    std::string ai_core_lpm = "off";
    std::string aiv_profiling;
    int32_t aiv_sampling_interval = 10;
    std::string aiv_profiling_events;
    std::string aiv_metrics;
    std::string aiv_profiling_mode;

    // Reports of the task scheduler.
    std::string ai_core_status;
    std::string ts_task_track;
    std::string ts_cpu_usage;
    std::string ts_timeline;
    std::string ts_keypoint;
    std::string ts_memcpy;
    std::string taskTsfw = "off";
    std::string ai_vector_status;
    std::string ts_fw_training;
    std::string hwts_log;
    std::string hwts_log1;
    std::string stars_acsq_task;
    std::string taskBlock;

    // CPUs: intervals in milliseconds.
    std::string cpu_profiling = "off";
    int32_t cpu_sampling_interval = 20;
    std::string aiCtrlCpuProfiling = "off";
    std::string ai_ctrl_cpu_profiling_events;
    std::string tsCpuProfiling = "off";
    std::string ts_cpu_profiling_events;

    // System and processes: intervals in milliseconds.
    std::string sys_profiling = "off";
    int32_t sys_sampling_interval = 100;
    std::string pid_profiling = "off";
    int32_t pid_sampling_interval = 100;

    // Memory and caches.
    std::string hardware_mem = "off";
    int32_t hardware_mem_sampling_interval = 20;
    std::string llc_profiling;
    std::string zelnar_llc_profiling;
    std::string memProfiling = "off";
    int32_t memInterval = 20;
    std::string llc_profiling_events;
    int32_t llc_interval = 20;  // 1 to 1000, else taken as 1
    std::string ddr_profiling;
    std::string ddr_profiling_events;
    int32_t ddr_interval = 20;
    int32_t ddr_master_id = 0;
    std::string hbmProfiling;
    std::string hbm_profiling_events;
    int32_t hbmInterval = 20;
    std::string l2CacheTaskProfiling;
    std::string l2CacheTaskProfilingEvents;

    // Links and other peripherals.
    std::string io_profiling = "off";
    int32_t io_sampling_interval = 10;
    std::string nicProfiling = "off";
    int32_t nicInterval = 10;
    std::string roceProfiling = "off";
    int32_t roceInterval = 10;
    std::string interconnection_profiling = "off";
    int32_t interconnection_sampling_interval = 20;
    std::string vmlkProfiling = "off";
    int32_t vmlkInterval = 20;
    std::string pcieProfiling;
    int32_t pcieInterval = 20;
    std::string vimg_profiling = "off";
    int32_t vimg_sampling_interval = 20;

    // Metrics and instruction profile.
    std::string ai_core_profiling_metrics;
    std::string aiv_profiling_metrics;
    std::string ts_cpu_hot_function;
    std::string instrProfiling;
    int32_t instrProfilingFreq = 1000;

    // Reports of the host-side libraries.
    std::string vcl;
    std::string modelExecution = "off";
    std::string taskFramework = "off";
    std::string runtimeApi = "off";
    std::string aicpuTrace;
    std::string runtimeTrace;
    std::string vmclTrace;
    std::string modelLoad;
    std::string zelnar = "off";  // "on" silences the system memory job
    std::string zelnartx = "off";
    std::string taskTrace = "on";
    std::string taskTime = "on";
    std::string prof_level = "off";
    std::string fwkSchedule = "off";

    // The host itself.
    std::string host_sys;
    int32_t host_sys_pid = -1;  // -1: none given
    std::string host_disk_profiling = "off";
    std::string host_osrt_profiling = "off";
    std::string pureCpu = "off";
    bool hostProfiling = false;  // collection on the host: every job on this side declines
    std::string host_cpu_profiling = "off";
    std::string host_mem_profiling = "off";
    std::string host_network_profiling = "off";
    int32_t host_disk_freq = 50;

    // Held for the host tool, never in the text.
    std::string extraText1;
    std::string extraSwitch0 = "off";
    std::string extraSwitch1 = "off";
    std::string extraSwitch2 = "off";
    std::string extraFormat = "csv";
    std::string extraSwitch3 = "off";
    std::string extraList = "communication,communication_matrix";
    int32_t extraId0 = -1;
    int32_t extraId1 = -1;
    std::set<int32_t> extraIds;
    std::string extraText2;
    std::string extraText3;
};

}  // namespace analysis::rokt::message
