// What each of the four control requests does with its task, and the reply to it.
#include "device/prof_msg_handler.h"

#include <cstdlib>
#include <string>

#include "config/param_validation.h"
#include "device/session_reply.h"
#include "device/task_manager.h"
#include "hdc/i_transport.h"
#include "message/job_context.h"
#include "message/profiler.pb.h"
#include "message/status_info.h"
#include "platform/log.h"

namespace analysis::rokt::device {
namespace {

using common::validation::ParamValidation;

bool ParseJobContext(const std::string& text, message::JobContext& jobCtx) {
    if (!jobCtx.FromString(text)) {
        TIV_LOGE("Failed to parse jobctx json %s.", text.c_str());
        return false;
    }
    return true;
}

std::string TaskKey(const message::JobContext& jobCtx) {
    return jobCtx.dev_id + "_" + jobCtx.job_id;
}

std::shared_ptr<IJobCallback> FindTask(const std::string& key) {
    std::shared_ptr<IJobCallback> task = TaskManager::Instance().GetTask(key);
    if (task == nullptr) {
        TIV_LOGE("Get Task Failed");
    }
    return task;
}

// The words of a lower layer win over the handler's own.
void Refuse(message::StatusInfo& status, const char* defaultInfo) {
    status.status = 1;
    if (status.info.empty()) {
        status.info = defaultInfo;
    }
}

int Reply(const message::JobContext& jobCtx, int32_t devIndexId,
          const message::StatusInfo& status) {
    return SendReply(jobCtx.job_id, devIndexId, message::CreateResponse(status));
}

bool JobIdentityIsValid(const message::JobContext& jobCtx) {
    const auto& validation = ParamValidation::Instance();
    if (!validation.CheckDeviceIdIsValid(jobCtx.dev_id)) {
        TIV_LOGE("[JobStartHandler::OnNewMessage]jobCtx.dev_id:%s is not valid!",
                 jobCtx.dev_id.c_str());
        return false;
    }
    if (!validation.CheckJobIdIsValid(jobCtx.job_id)) {
        TIV_LOGE("[JobStartHandler::OnNewMessage]jobCtx.job_id:%s is illegal",
                 jobCtx.job_id.c_str());
        return false;
    }
    return true;
}

}  // namespace

void JobStartHandler::OnNewMessage(const message::MessagePtr& message) {
    TIV_LOGI("[JobStartHandler::OnNewMessage] Entering handler");
    const auto req = std::dynamic_pointer_cast<proto::JobStartReq>(message);
    if (req == nullptr) {
        return;
    }
    message::JobContext jobCtx;
    if (!ParseJobContext(req->hdr().job_ctx(), jobCtx) || !JobIdentityIsValid(jobCtx)) {
        return;
    }
    const auto hostId = static_cast<int32_t>(std::strtol(jobCtx.dev_id.c_str(), nullptr, 10));
    int32_t devIndexId = 0;
    message::StatusInfo status;
    const auto task = TaskManager::Instance().CreateTask(hostId, TaskKey(jobCtx), transport);
    if (task == nullptr) {
        TIV_LOGE("Create Task Failed");
        status.status = 1;
        status.info = "Create task failed.";
    } else {
        devIndexId = task->GetDevId();
        if (task->OnJobStart(req, status) != 0) {
            Refuse(status, "start job failed");
        }
    }
    const int ret = Reply(jobCtx, devIndexId, status);
    TIV_LOGI("Reply job start, status=%s, devIndexId=%d, ret=%d", status.ToString().c_str(),
             devIndexId, ret);
}

void JobStopHandler::OnNewMessage(const message::MessagePtr& message) {
    TIV_LOGI("[JobStopHandler::OnNewMessage] Entering handler");
    const auto req = std::dynamic_pointer_cast<proto::JobStopReq>(message);
    if (req == nullptr) {
        return;
    }
    message::JobContext jobCtx;
    if (!ParseJobContext(req->hdr().job_ctx(), jobCtx)) {
        return;
    }
    const std::string key = TaskKey(jobCtx);
    const auto task = FindTask(key);
    if (task == nullptr) {
        return;
    }
    const int32_t devIndexId = task->GetDevId();
    message::StatusInfo status;
    if (task->OnJobEnd(status) != 0) {
        Refuse(status, "stop job failed");
    }
    const int ret = Reply(jobCtx, devIndexId, status);
    TIV_LOGI("Reply job stop, status=%s, devIndexId=%d, ret=%d", status.ToString().c_str(),
             devIndexId, ret);
    if (!TaskManager::Instance().DeleteTask(key)) {
        TIV_LOGE("DeleteTask failed.jobId: %s", key.c_str());
    }
}

void ReplayStartHandler::OnNewMessage(const message::MessagePtr& message) {
    TIV_LOGI("[StartHandler::OnNewMessage] Entering handler");
    const auto req = std::dynamic_pointer_cast<proto::ReplayStartReq>(message);
    if (req == nullptr) {
        return;
    }
    message::JobContext jobCtx;
    if (!ParseJobContext(req->hdr().job_ctx(), jobCtx)) {
        return;
    }
    const auto task = FindTask(TaskKey(jobCtx));
    if (task == nullptr) {
        return;
    }
    const int32_t devIndexId = task->GetDevId();
    message::StatusInfo status;
    if (task->Start(req, status) != 0) {
        Refuse(status, "start failed");
    }
    const int ret = Reply(jobCtx, devIndexId, status);
    TIV_LOGI("Reply start, status=%s, devIndexId=%d, ret=%d", status.ToString().c_str(), devIndexId,
             ret);
}

void ReplayStopHandler::OnNewMessage(const message::MessagePtr& message) {
    TIV_LOGI("[StopHandler::OnNewMessage] Entering handler");
    const auto req = std::dynamic_pointer_cast<proto::ReplayStopReq>(message);
    if (req == nullptr) {
        return;
    }
    message::JobContext jobCtx;
    if (!ParseJobContext(req->hdr().job_ctx(), jobCtx)) {
        return;
    }
    const auto task = FindTask(TaskKey(jobCtx));
    if (task == nullptr) {
        return;
    }
    const int32_t devIndexId = task->GetDevId();
    message::StatusInfo status;
    if (task->End(req, status) != 0) {
        Refuse(status, "stop failed");
    }
    const int ret = Reply(jobCtx, devIndexId, status);
    TIV_LOGI("Stop, status=%s, devIndexId=%d, ret=%d", status.ToString().c_str(), devIndexId, ret);
}

}  // namespace analysis::rokt::device
