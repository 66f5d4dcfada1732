// The tags that number collection jobs, and the data file that belongs to each of them.
#pragma once

#include <array>
#include <cstdint>

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// Tags index the engine's job table and the registry. The numbers between the named ones are
// reserved.
enum JobTag : int32_t {
    PROF_JOB_LLC = 2,
    PROF_JOB_MINI_LLC = 3,
    PROF_JOB_CTRL_CPU = 29,
    PROF_JOB_SYS_STAT = 30,
    PROF_JOB_SYS_MEM = 31,
    PROF_JOB_ALL_PIDS = 32,
    JOB_TAG_COUNT = 39,
};

// Data file of each tag, relative to the result directory. The jobs from tag 30 on name their files
// themselves.
constexpr std::array<const char*, JOB_TAG_COUNT> JOB_DATA_FILES = {
    "data/ddr.data",
    "data/hbm.data",
    "data/llc.data",
    "data/llc.data",
    "data/vimg.data",
    "data/nic.data",
    "data/pcie.data",
    "data/vmlk.data",
    "data/roce.data",
    "data/npu_mem.app",
    "data/npu_mem.data",
    "data/npu_module_mem.data",
    "data/lpmFreqConv.data",
    "data/tscpu.data",
    "data/ts_track.data",
    "data/ts_track.aiv_data",
    "data/aicore.data",
    "data/aicore.data",
    "data/aiVectorCore.data",
    "data/aiVectorCore.data",
    "data/hwts.data",
    "data/hwts.aiv_data",
    "data/training_trace.data",
    "data/l2_cache.data",
    "data/stars_soc.data",
    "data/stars_block.data",
    "data/stars_soc_profile.data",
    "data/ffts_profile.data",
    "data/instr",
    "data/ai_ctrl_cpu.data",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
