// The control requests of one job as calls of its engine.
#include "device/prof_job_handler.h"

#include <exception>
#include <vector>

#include "config/param_validation.h"
#include "device/collect_engine.h"
#include "platform/log.h"

namespace analysis::rokt::device {
namespace {

using common::validation::ParamValidation;

bool EventCountIsValid(int count, const char* field) {
    if (ParamValidation::Instance().CheckEventSizeIsValid(count)) {
        return true;
    }
    TIV_LOGE("%s_size(%d) is not valid!", field, count);
    return false;
}

int CheckEventsSize(const std::shared_ptr<proto::ReplayStartReq>& req) {
    if (req == nullptr) {
        return -1;
    }
    const bool valid = EventCountIsValid(req->ctrl_cpu_events_size(), "ctrl_cpu_events") &&
                       EventCountIsValid(req->ts_cpu_events_size(), "ts_cpu_events") &&
                       EventCountIsValid(req->ai_cpu_events_size(), "ai_cpu_events") &&
                       EventCountIsValid(req->llc_events_size(), "llc_events");
    return valid ? 0 : -1;
}

CollectEngine::EventList CopyEvents(const google::protobuf::RepeatedPtrField<std::string>& events) {
    try {
        return std::make_shared<std::vector<std::string>>(events.begin(), events.end());
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return nullptr;
    }
}

}  // namespace

ProfJobHandler::~ProfJobHandler() { Uninit(); }

int ProfJobHandler::Init(int32_t devIndex, const std::string& taskKey,
                         const std::shared_ptr<transport::ITransport>& sessionTransport) {
    if (sessionTransport == nullptr) {
        TIV_LOGE("Init failed, transport is null");
        return -1;
    }
    devIndexId = devIndex;
    jobId = taskKey;
    transport = sessionTransport;
    inited = true;
    return 0;
}

int ProfJobHandler::Uninit() {
    if (inited) {
        devIndexId = -1;
        jobId.clear();
        inited = false;
    }
    return 0;
}

int ProfJobHandler::InitEngine(message::StatusInfo& status) {
    status.status = 1;
    if (_is_started) {
        TIV_LOGE("InitEngine Profiling is already running on device");
        status.info = "Profiling is already running on device";
        return -1;
    }
    try {
        engine = std::make_shared<CollectEngine>();
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return -1;
    }
    const int ret = engine->Init(devIndexId);
    if (ret != 0) {
        TIV_LOGE("InitEngine Failed to init collection engine");
        engine.reset();
        status.info = "Failed to init collection engine";
        return ret;
    }
    engine->SetDevIdOnHost(devIdOnHost);
    return 0;
}

int ProfJobHandler::OnJobStart(const std::shared_ptr<proto::JobStartReq>& req,
                               message::StatusInfo& status) {
    tiv::MutexLock lock(taskMutex);
    TIV_LOGI("receive job start");
    if (req == nullptr) {
        TIV_LOGE("[OnJobStart] message is nullptr");
        return -1;
    }
    if (InitEngine(status) != 0) {
        TIV_LOGE("InitEngine failed");
        return -1;
    }
    if (engine->CollectStart(req->sampleconfig(), status) != 0) {
        TIV_LOGE("devId %d CollectStart failed", devIndexId);
        engine.reset();
        return -1;
    }
    _is_started = true;
    return 0;
}

int ProfJobHandler::OnJobEnd(message::StatusInfo& status) {
    tiv::MutexLock lock(taskMutex);
    TIV_LOGI("receive job end");
    status.status = 1;
    if (!_is_started || engine == nullptr) {
        TIV_LOGE("OnJobEnd Profiling is not started on device");
        status.info = "Profiling is not started on device";
        return -1;
    }
    const int ret = engine->CollectStop(status);
    ResetTask();
    return ret;
}

int ProfJobHandler::Start(const std::shared_ptr<proto::ReplayStartReq>& req,
                          message::StatusInfo& status) {
    tiv::MutexLock lock(taskMutex);
    TIV_LOGI("receive start");
    status.status = 1;
    const int ret = RunReplayStart(req, status);
    if (ret != 0) {
        TIV_LOGE("Start failed, doing ResetTask!");
        ResetTask();
    }
    return ret;
}

int ProfJobHandler::RunReplayStart(const std::shared_ptr<proto::ReplayStartReq>& req,
                                   message::StatusInfo& status) {
    if (!_is_started) {
        TIV_LOGE("Start Profiling is not started on device");
        status.info = "Profiling is not started on device";
        return -1;
    }
    if (CheckEventsSize(req) != 0) {
        TIV_LOGE("Start pmu event size is not valid");
        status.info = "[Start] pmu event size is not valid!";
        return -1;
    }
    if (engine == nullptr) {
        TIV_LOGE("Start Engine is null");
        status.info = "[Start] Start Engine is null!";
        return -1;
    }
    return engine->ReplayStart(CopyEvents(req->ctrl_cpu_events()), status,
                               CopyEvents(req->llc_events()));
}

int ProfJobHandler::End(const std::shared_ptr<proto::ReplayStopReq>& req,
                        message::StatusInfo& status) {
    tiv::MutexLock lock(taskMutex);
    TIV_LOGI("receive end");
    status.status = 1;
    const int ret = RunReplayStop(req, status);
    if (ret != 0) {
        TIV_LOGE("End failed");
        ResetTask();
    }
    return ret;
}

int ProfJobHandler::RunReplayStop(const std::shared_ptr<proto::ReplayStopReq>& req,
                                  message::StatusInfo& status) {
    if (req == nullptr) {
        TIV_LOGE("End message is nullptr");
        status.info = "StopReq message is nullptr";
        return -1;
    }
    if (!_is_started) {
        TIV_LOGE("End Profiling is not started on device");
        status.info = "Profiling is not started on device";
        return -1;
    }
    if (engine == nullptr) {
        TIV_LOGE("End Engine is null");
        status.info = "[End] End Engine is null!";
        return -1;
    }
    return engine->ReplayStop(status);
}

int ProfJobHandler::OnConnectionReset() {
    tiv::MutexLock lock(taskMutex);
    TIV_LOGI("receive connection reset, _is_started:%d", static_cast<int>(_is_started));
    if (!_is_started) {
        return 0;
    }
    if (engine == nullptr) {
        TIV_LOGE("OnConnectionReset engine is null");
        return -1;
    }
    message::StatusInfo localStatus;
    if (engine->CollectStop(localStatus) != 0) {
        TIV_LOGW("Failed to stop collect.");
    }
    engine.reset();
    return 0;
}

void ProfJobHandler::ResetTask() {
    TIV_LOGI("ResetTask begin, _is_started:%d", static_cast<int>(_is_started));
    if (_is_started) {
        _is_started = false;
        engine.reset();
    }
}

}  // namespace analysis::rokt::device
