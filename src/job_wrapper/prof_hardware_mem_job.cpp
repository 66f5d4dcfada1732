// When the jobs over memory hardware run, and the records that start their channels.
#include "job_wrapper/prof_hardware_mem_job.h"

#include "common/utils.h"
#include "config/config_manager.h"
#include "message/prof_params.h"
#include "platform/log.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

using analysis::rokt::common::utils::Utils;
using analysis::rokt::message::ProfileParams;
using Common::Config::ConfigManager;

namespace {

constexpr uint32_t HBM_CHANNEL = 1;
constexpr uint32_t DDR_CHANNEL = 7;
constexpr uint32_t LLC_CHANNEL = 8;
constexpr uint32_t APP_MEM_CHANNEL = 130;
constexpr uint32_t DEV_MEM_CHANNEL = 131;
constexpr uint32_t AI_STACK_MEM_CHANNEL = 142;

constexpr int32_t PERIOD_DEFAULT = 1;
constexpr int32_t PERIOD_MAX = 1000;
constexpr uint32_t NO_MASTER_ID = 0xFFFFFFFF;
// Period, master id and event count stand in front of the events.
constexpr size_t HEAD_WORDS = sizeof(TagDdrProfileConfig) / sizeof(uint32_t);
constexpr uint32_t LLC_READ = 1;
constexpr uint32_t LLC_WRITE = 2;
constexpr uint32_t MEM_OF_OTHERS = 0;
constexpr uint32_t MEM_OF_DEVICE = 1;
constexpr const char* SWITCH_ON = "on";

int32_t PeriodOf(int32_t interval) {
    return interval >= PERIOD_DEFAULT && interval <= PERIOD_MAX ? interval : PERIOD_DEFAULT;
}

// The tests that all jobs here have in front: what they need is there, and the job is one for the
// device.
bool PassesEvents(const std::shared_ptr<CollectionJobCfg>& cfg) {
    if (!HasEvents(cfg)) {
        TIV_LOGI("Job check event param not pass");
        return false;
    }
    return !cfg->comParams->params->hostProfiling;
}

bool PassesParams(const std::shared_ptr<CollectionJobCfg>& cfg) {
    if (!HasCommonParams(cfg)) {
        TIV_LOGI("Job check comm param failed");
        return false;
    }
    return !cfg->comParams->params->hostProfiling;
}

// The channel counts one kind of access: the last one asked for.
uint32_t LlcSampleType(const JobEventList& events) {
    uint32_t sampleType = 0;
    if (events == nullptr) {
        return sampleType;
    }
    for (const std::string& event : *events) {
        if (event == "read") {
            sampleType = LLC_READ;
        } else if (event == "write") {
            sampleType = LLC_WRITE;
        } else {
            TIV_LOGW("LLC event:%s not support", event.c_str());
        }
    }
    return sampleType;
}

int TakeIf(bool enabled, const char* notEnabled) {
    if (!enabled) {
        TIV_LOGI("%s", notEnabled);
        return -1;
    }
    return 0;
}

}  // namespace

int ProfBandwidthJob::PackRecord(const RecordRule& rule, int32_t interval) {
    const JobEventList events = EventsOf(*collectionJobCfg);
    samplePeriod = PeriodOf(interval);
    eventsStr = eventsText(events);
    const size_t eventNum = CountReadWrite(events);
    const auto size = static_cast<uint32_t>((eventNum + HEAD_WORDS) * sizeof(uint32_t));
    if (size < 1) {
        TIV_LOGE("Profiling Config Size Out Range");
        return -1;
    }
    auto* const words = static_cast<uint32_t*>(Utils::ProfMalloc(size));
    if (words == nullptr) {
        TIV_LOGE("%s", rule.mallocFailed);
        return -1;
    }
    words[0] = static_cast<uint32_t>(samplePeriod);
    words[1] = NO_MASTER_ID;
    words[2] = static_cast<uint32_t>(eventNum);
    FillEvents(events, rule, words);
    peripheralCfg.configBuffer = words;
    peripheralCfg.configSize = size;
    return 0;
}

void ProfBandwidthJob::FillEvents(const JobEventList& events, const RecordRule& rule,
                                  uint32_t* words) {
    if (events == nullptr) {
        return;
    }
    uint32_t* next = words + HEAD_WORDS;
    for (const std::string& event : *events) {
        if (event == "read") {
            *next++ = 0;
        } else if (event == "write") {
            *next++ = 1;
        } else if (rule.hasMasterId && event == "master_id") {
            words[1] = static_cast<uint32_t>(collectionJobCfg->comParams->params->ddr_master_id);
        } else {
            TIV_LOGW("%s event:%s not support", rule.name, event.c_str());
        }
    }
}

ProfDdrJob::ProfDdrJob() { channelId = DDR_CHANNEL; }

int ProfDdrJob::Init(const std::shared_ptr<CollectionJobCfg>& cfg) {
    const tiv::MutexLock lock(jobMutex);
    if (!PassesEvents(cfg)) {
        return -1;
    }
    collectionJobCfg = cfg;
    return TakeIf(cfg->comParams->params->ddr_profiling == SWITCH_ON, "DDR Profiling not enabled");
}

int ProfDdrJob::SetPeripheralConfig() {
    return PackRecord({"DDR", "ProfDdrJob ProfMalloc TagDdrProfileConfig failed", true},
                      collectionJobCfg->comParams->params->ddr_interval);
}

ProfHbmJob::ProfHbmJob() { channelId = HBM_CHANNEL; }

int ProfHbmJob::Init(const std::shared_ptr<CollectionJobCfg>& cfg) {
    const tiv::MutexLock lock(jobMutex);
    if (!PassesEvents(cfg)) {
        return -1;
    }
    collectionJobCfg = cfg;
    return TakeIf(cfg->comParams->params->hbmProfiling == SWITCH_ON, "HBM Profiling not enabled");
}

int ProfHbmJob::SetPeripheralConfig() {
    return PackRecord({"HBM", "ProfHbmJob ProfMalloc TagTsHbmProfileConfig failed", false},
                      collectionJobCfg->comParams->params->hbmInterval);
}

ProfLlcJob::ProfLlcJob() { channelId = LLC_CHANNEL; }

int ProfLlcJob::Init(const std::shared_ptr<CollectionJobCfg>& cfg) {
    const tiv::MutexLock lock(jobMutex);
    if (!PassesEvents(cfg)) {
        return -1;
    }
    if (ConfigManager::Instance().GetPlatformType() == 0) {
        TIV_LOGI("Mini LLC Profiling not transport by driver channel");
        return -1;
    }
    collectionJobCfg = cfg;
    return TakeIf(cfg->comParams->params->zelnar_llc_profiling == SWITCH_ON,
                  "LLC Profiling not enabled");
}

int ProfLlcJob::SetPeripheralConfig() {
    const JobEventList events = EventsOf(*collectionJobCfg);
    samplePeriod = PeriodOf(collectionJobCfg->comParams->params->llc_interval);
    eventsStr = eventsText(events);
    auto* const record =
        static_cast<TagLlcProfileConfig*>(Utils::ProfMalloc(sizeof(TagLlcProfileConfig)));
    if (record == nullptr) {
        TIV_LOGE("ProfLlcJob ProfMalloc TagLlcProfileConfig failed");
        return -1;
    }
    record->period = static_cast<uint32_t>(samplePeriod);
    record->sampleType = LlcSampleType(events);
    peripheralCfg.configBuffer = record;
    peripheralCfg.configSize = sizeof(TagLlcProfileConfig);
    return 0;
}

int ProfMemJob::PackRecord(uint32_t event, const char* mallocFailed) {
    samplePeriod = collectionJobCfg->comParams->params->memInterval;
    auto* const record =
        static_cast<TagMemProfileConfig*>(Utils::ProfMalloc(sizeof(TagMemProfileConfig)));
    if (record == nullptr) {
        TIV_LOGE("%s", mallocFailed);
        return -1;
    }
    record->period = static_cast<uint32_t>(samplePeriod);
    record->event = event;
    peripheralCfg.configBuffer = record;
    peripheralCfg.configSize = sizeof(TagMemProfileConfig);
    return 0;
}

ProfAppMemJob::ProfAppMemJob() { channelId = APP_MEM_CHANNEL; }

int ProfAppMemJob::Init(const std::shared_ptr<CollectionJobCfg>& cfg) {
    const tiv::MutexLock lock(jobMutex);
    if (!PassesParams(cfg)) {
        return -1;
    }
    collectionJobCfg = cfg;
    const ProfileParams& params = *cfg->comParams->params;
    return TakeIf(!params.app.empty() && params.memProfiling == SWITCH_ON,
                  "Application Memory not enabled.");
}

int ProfAppMemJob::SetPeripheralConfig() {
    return PackRecord(MEM_OF_OTHERS, "ProfAppMemJob ProfMalloc TagMemProfileConfig failed");
}

ProfDevMemJob::ProfDevMemJob() { channelId = DEV_MEM_CHANNEL; }

int ProfDevMemJob::Init(const std::shared_ptr<CollectionJobCfg>& cfg) {
    const tiv::MutexLock lock(jobMutex);
    if (!PassesParams(cfg)) {
        return -1;
    }
    collectionJobCfg = cfg;
    return TakeIf(cfg->comParams->params->memProfiling == SWITCH_ON, "Device Memory not enabled");
}

int ProfDevMemJob::SetPeripheralConfig() {
    return PackRecord(MEM_OF_DEVICE, "ProfDevMemJob ProfMalloc TagMemProfileConfig failed");
}

ProfAiStackMemJob::ProfAiStackMemJob() { channelId = AI_STACK_MEM_CHANNEL; }

int ProfAiStackMemJob::Init(const std::shared_ptr<CollectionJobCfg>& cfg) {
    const tiv::MutexLock lock(jobMutex);
    if (!PassesParams(cfg)) {
        return -1;
    }
    collectionJobCfg = cfg;
    return TakeIf(cfg->comParams->params->memProfiling == SWITCH_ON, "Ai stack Memory not enabled");
}

int ProfAiStackMemJob::SetPeripheralConfig() {
    return PackRecord(MEM_OF_OTHERS, "ProfAiStackMemJob ProfMalloc TagMemProfileConfig failed");
}

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
