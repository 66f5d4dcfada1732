// The reader behind a driver channel, and the channel's start and stop.
#include "job_wrapper/prof_comm_job.h"

#include <algorithm>
#include <exception>

#include "common/utils.h"
#include "config/json_parser.h"
#include "driver/drv_channels_mgr.h"
#include "job_wrapper/prof_channel_manager.h"
#include "message/prof_params.h"
#include "platform/log.h"
#include "transport/channel_poll.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

using analysis::rokt::common::utils::Utils;
using analysis::rokt::driver::DrvChannelsMgr;
using analysis::rokt::driver::DrvPeripheralStart;
using analysis::rokt::driver::DrvStop;
using analysis::rokt::message::JobContext;
using analysis::rokt::transport::ChannelReader;
using Zelnarer::Parser::JsonParser;

namespace {

std::shared_ptr<ChannelReader> MakeReader(int32_t devId, uint32_t channelId,
                                          const std::string& name,
                                          const std::shared_ptr<JobContext>& jobCtx) {
    std::shared_ptr<ChannelReader> reader;
    try {
        reader =
            std::make_shared<ChannelReader>(devId, static_cast<int32_t>(channelId), name, jobCtx);
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return nullptr;
    }
    return reader->Init() == 0 ? reader : nullptr;
}

// The data file that belongs to a tag; empty for a tag that names its files itself.
std::string DataFileOf(int32_t tag) {
    const bool known = tag >= 0 && tag < JOB_TAG_COUNT;
    return known ? JOB_DATA_FILES[static_cast<size_t>(tag)] : "";
}

}  // namespace

bool HasCommonParams(const std::shared_ptr<CollectionJobCfg>& cfg) {
    return cfg != nullptr && cfg->comParams != nullptr && cfg->comParams->params != nullptr;
}

bool HasEvents(const std::shared_ptr<CollectionJobCfg>& cfg) {
    if (!HasCommonParams(cfg)) {
        return false;
    }
    const JobEventList events = EventsOf(*cfg);
    return events != nullptr && !events->empty();
}

void ProfDrvJob::AddReader(const std::string& key, int32_t devId, uint32_t channelId,
                           const std::string& filePath) {
    const CollectionJobCommonParams& common = *collectionJobCfg->comParams;
    std::string relativeName = filePath;  // a path from elsewhere keeps its name
    (void)Utils::RelativePath(filePath, common.tmpResultDir, relativeName);
    const auto reader = MakeReader(devId, channelId, relativeName, common.jobCtx);
    if (reader == nullptr) {
        return;
    }
    const auto poller = ProfChannelManager::Instance().GetChannelPoller();
    if (poller == nullptr) {
        TIV_LOGI("ProfDrvJob AddReader failed, key:%s, devId:%d, channel:%d, filepath:%s",
                 key.c_str(), devId, static_cast<int>(channelId), filePath.c_str());
        return;
    }
    poller->AddReader(static_cast<uint32_t>(devId), channelId, reader);
}

void ProfDrvJob::RemoveReader(const std::string& key, int32_t devId, uint32_t channelId) {
    TIV_LOGI("ProfDrvJob RemoveReader, key:%s, devId:%d, channel:%d", key.c_str(), devId,
             static_cast<int>(channelId));
    const auto poller = ProfChannelManager::Instance().GetChannelPoller();
    if (poller != nullptr) {
        poller->RemoveReader(static_cast<uint32_t>(devId), channelId);
    }
}

std::string ProfDrvJob::eventsText(const JobEventList& events) {
    return events == nullptr ? std::string() : Utils::Join(*events, ",");
}

std::string ProfDrvJob::SuffixedName(const std::string& name, int32_t number) {
    return name + "." + std::to_string(number);
}

size_t ProfDrvJob::CountReadWrite(const JobEventList& events) {
    if (events == nullptr) {
        return 0;
    }
    const auto count = std::count_if(events->begin(), events->end(), [](const std::string& event) {
        return event == "read" || event == "write";
    });
    return static_cast<size_t>(count);
}

int ProfPeripheralJob::Init(const std::shared_ptr<CollectionJobCfg>& cfg) {
    const tiv::MutexLock lock(jobMutex);
    if (!HasCommonParams(cfg)) {
        TIV_LOGI("Job check comm param failed");
        return -1;
    }
    if (cfg->comParams->params->hostProfiling) {
        return -1;
    }
    collectionJobCfg = cfg;
    return 0;
}

int ProfPeripheralJob::Process() {
    const tiv::MutexLock lock(jobMutex);
    if (!CheckCommonParams()) {
        return -1;
    }
    if (!CheckChannel()) {
        return 0;
    }
    const CollectionJobCommonParams& common = *collectionJobCfg->comParams;
    TIV_LOGI("Begin to start profiling Channel %d, events:%s", static_cast<int>(channelId),
             eventsStr.c_str());
    peripheralCfg.profDataFilePath = DataFilePath();
    const int ret = SetPeripheralConfig();
    if (ret != 0) {
        TIV_LOGE("ProfPeripheralJob SetPeripheralConfig failed");
        return ret;
    }
    AddReader(common.params->job_id, common.devId, channelId, peripheralCfg.profDataFilePath);
    TIV_LOGI("begin to start profiling Channel %d, devId :%d", static_cast<int>(channelId),
             common.devId);
    FillStart();
    return StartChannel();
}

// The result directory is the same text for the record and for the reader, which cuts it off again:
// whatever it is at this replay, the data gets the same name.
std::string ProfPeripheralJob::DataFilePath() const {
    if (!collectionJobCfg->dataFile.empty()) {
        return collectionJobCfg->dataFile;
    }
    return collectionJobCfg->comParams->tmpResultDir + "/" + DataFileOf(collectionJobCfg->jobTag);
}

bool ProfPeripheralJob::CheckCommonParams() const {
    if (!HasCommonParams(collectionJobCfg)) {
        TIV_LOGI("Job check comm param failed");
        return false;
    }
    return true;
}

bool ProfPeripheralJob::CheckChannel() const {
    const int32_t devId = collectionJobCfg->comParams->devId;
    if (!DrvChannelsMgr::Instance().ChannelIsValid(devId, channelId)) {
        TIV_LOGW("Channel is invalid, devId:%d, channelId:%d", devId, static_cast<int>(channelId));
        return false;
    }
    return true;
}

// The driver takes its buffer's size in the field called threshold.
void ProfPeripheralJob::FillStart() {
    const JsonParser& overrides = JsonParser::Instance();
    const auto period = static_cast<int32_t>(overrides.GetChannelPeriod(channelId));
    peripheralCfg.profDeviceId = collectionJobCfg->comParams->devId;
    peripheralCfg.profChannel = channelId;
    peripheralCfg.threshold = overrides.GetDriverBufferSize(channelId);
    peripheralCfg.profSamplePeriod = period > 0 ? period : samplePeriod;
    peripheralCfg.profDataFile.clear();
}

int ProfPeripheralJob::StartChannel() {
    const int ret = DrvPeripheralStart(peripheralCfg);
    TIV_LOGI("start profiling Channel %d, events:%s, ret=%d", static_cast<int>(channelId),
             eventsStr.c_str(), ret);
    Utils::ProfFree(peripheralCfg.configBuffer);
    if (ret != 0) {
        TIV_LOGE("Function ret check failed");
    }
    return ret;
}

int ProfPeripheralJob::Uninit() {
    const tiv::MutexLock lock(jobMutex);
    if (!CheckCommonParams() || !CheckChannel()) {
        return 0;
    }
    const CollectionJobCommonParams& common = *collectionJobCfg->comParams;
    TIV_LOGI("begin to stop profiling Channel %d data", static_cast<int>(channelId));
    const int ret = DrvStop(static_cast<uint32_t>(common.devId), channelId);
    TIV_LOGI("stop profiling Channel %d data, ret=%d", static_cast<int>(channelId), ret);
    RemoveReader(common.params->job_id, common.devId, channelId);
    return 0;
}

int ProfPeripheralJob::SetPeripheralConfig() {
    peripheralCfg.configBuffer = nullptr;
    peripheralCfg.configSize = 0;
    return 0;
}

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
