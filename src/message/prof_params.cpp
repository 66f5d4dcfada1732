// The keys of the sample configuration, one table per type of field.
#include "message/prof_params.h"

namespace analysis::rokt::message {

namespace {

template <typename T>
struct Field {
    const char* key;
    T ProfileParams::*member;
};

// The key of a field is its name.
#define TIV_FIELD(name) \
    { #name, &ProfileParams::name }

constexpr Field<std::string> TEXT_FIELDS[] = {
    TIV_FIELD(job_id),
    TIV_FIELD(result_dir),
    TIV_FIELD(storageLimit),
    TIV_FIELD(profiling_mode),
    TIV_FIELD(devices),
    TIV_FIELD(stream_enabled),
    TIV_FIELD(profiling_options),
    TIV_FIELD(jobInfo),
    TIV_FIELD(app),
    TIV_FIELD(app_dir),
    TIV_FIELD(app_parameters),
    TIV_FIELD(app_location),
    TIV_FIELD(app_env),
    TIV_FIELD(ai_core_profiling),
    TIV_FIELD(ai_core_profiling_mode),
    TIV_FIELD(ai_core_profiling_events),
    TIV_FIELD(ai_core_metrics),
    TIV_FIELD(ai_core_lpm),
    TIV_FIELD(aiv_profiling),
    TIV_FIELD(aiv_profiling_events),
    TIV_FIELD(aiv_metrics),
    TIV_FIELD(aiv_profiling_mode),
    TIV_FIELD(ai_core_status),
    TIV_FIELD(ts_task_track),
    TIV_FIELD(ts_cpu_usage),
    TIV_FIELD(ts_timeline),
    TIV_FIELD(ts_keypoint),
    TIV_FIELD(ts_memcpy),
    TIV_FIELD(taskTsfw),
    TIV_FIELD(ai_vector_status),
    TIV_FIELD(ts_fw_training),
    TIV_FIELD(hwts_log),
    TIV_FIELD(hwts_log1),
    TIV_FIELD(stars_acsq_task),
    TIV_FIELD(taskBlock),
    TIV_FIELD(cpu_profiling),
    TIV_FIELD(aiCtrlCpuProfiling),
    TIV_FIELD(ai_ctrl_cpu_profiling_events),
    TIV_FIELD(tsCpuProfiling),
    TIV_FIELD(ts_cpu_profiling_events),
    TIV_FIELD(sys_profiling),
    TIV_FIELD(pid_profiling),
    TIV_FIELD(hardware_mem),
    TIV_FIELD(llc_profiling),
    TIV_FIELD(zelnar_llc_profiling),
    TIV_FIELD(memProfiling),
    TIV_FIELD(llc_profiling_events),
    TIV_FIELD(ddr_profiling),
    TIV_FIELD(ddr_profiling_events),
    TIV_FIELD(hbmProfiling),
    TIV_FIELD(hbm_profiling_events),
    TIV_FIELD(l2CacheTaskProfiling),
    TIV_FIELD(l2CacheTaskProfilingEvents),
    TIV_FIELD(io_profiling),
    TIV_FIELD(nicProfiling),
    TIV_FIELD(roceProfiling),
    TIV_FIELD(interconnection_profiling),
    TIV_FIELD(vmlkProfiling),
    TIV_FIELD(pcieProfiling),
    TIV_FIELD(vimg_profiling),
    TIV_FIELD(ai_core_profiling_metrics),
    TIV_FIELD(aiv_profiling_metrics),
    TIV_FIELD(ts_cpu_hot_function),
    TIV_FIELD(instrProfiling),
    TIV_FIELD(vcl),
    TIV_FIELD(modelExecution),
    TIV_FIELD(taskFramework),
    TIV_FIELD(runtimeApi),
    TIV_FIELD(aicpuTrace),
    TIV_FIELD(runtimeTrace),
    TIV_FIELD(vmclTrace),
    TIV_FIELD(modelLoad),
    TIV_FIELD(zelnar),
    TIV_FIELD(zelnartx),
    TIV_FIELD(taskTrace),
    TIV_FIELD(taskTime),
    TIV_FIELD(prof_level),
    TIV_FIELD(fwkSchedule),
    TIV_FIELD(host_sys),
    TIV_FIELD(host_disk_profiling),
    TIV_FIELD(host_osrt_profiling),
    TIV_FIELD(pureCpu),
    TIV_FIELD(host_cpu_profiling),
    TIV_FIELD(host_mem_profiling),
    TIV_FIELD(host_network_profiling),
};

constexpr Field<int32_t> INT_FIELDS[] = {
    TIV_FIELD(zelnarBinPid),
    TIV_FIELD(profiling_period),
    TIV_FIELD(aicore_sampling_interval),
    TIV_FIELD(aiv_sampling_interval),
    TIV_FIELD(cpu_sampling_interval),
    TIV_FIELD(sys_sampling_interval),
    TIV_FIELD(pid_sampling_interval),
    TIV_FIELD(hardware_mem_sampling_interval),
    TIV_FIELD(memInterval),
    TIV_FIELD(llc_interval),
    TIV_FIELD(ddr_interval),
    TIV_FIELD(ddr_master_id),
    TIV_FIELD(hbmInterval),
    TIV_FIELD(io_sampling_interval),
    TIV_FIELD(nicInterval),
    TIV_FIELD(roceInterval),
    TIV_FIELD(interconnection_sampling_interval),
    TIV_FIELD(vmlkInterval),
    TIV_FIELD(pcieInterval),
    TIV_FIELD(vimg_sampling_interval),
    TIV_FIELD(instrProfilingFreq),
    TIV_FIELD(host_sys_pid),
    TIV_FIELD(host_disk_freq),
};

constexpr Field<bool> BOOL_FIELDS[] = {
    TIV_FIELD(isCancel),
    TIV_FIELD(hostProfiling),
};

#undef TIV_FIELD

template <typename T, std::size_t N>
void WriteFields(const ProfileParams& params, const Field<T> (&fields)[N], Json& object) {
    for (const Field<T>& field : fields) {
        object[field.key] = params.*field.member;
    }
}

}  // namespace

void ProfileParams::ToObject(Json& object) const {
    WriteFields(*this, TEXT_FIELDS, object);
    WriteFields(*this, INT_FIELDS, object);
    WriteFields(*this, BOOL_FIELDS, object);
}

void ProfileParams::FromObject(const Json& object) {
    for (const auto& field : TEXT_FIELDS) {
        ReadString(object, field.key, this->*field.member);
    }
    for (const auto& field : INT_FIELDS) {
        ReadInt(object, field.key, this->*field.member);
    }
    for (const auto& field : BOOL_FIELDS) {
        ReadBool(object, field.key, this->*field.member);
    }
}

std::string ProfileParams::GetClassName() const { return "ProfileParams"; }

}  // namespace analysis::rokt::message
