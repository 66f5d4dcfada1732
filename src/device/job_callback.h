// The interface through which handlers and the task table see a profiling task.
#pragma once

#include <cstdint>
#include <memory>

#include "message/profiler.pb.h"
#include "message/status_info.h"

namespace analysis::rokt::device {

// Each operation returns 0 on success. `status` carries what the host is told: 0 or 1, and a text.
class IJobCallback {
 public:
    virtual ~IJobCallback() = default;
    virtual int OnJobStart(const std::shared_ptr<proto::JobStartReq>& req,
                           message::StatusInfo& status) = 0;
    virtual int OnJobEnd(message::StatusInfo& status) = 0;
    virtual int Start(const std::shared_ptr<proto::ReplayStartReq>& req,
                      message::StatusInfo& status) = 0;
    virtual int End(const std::shared_ptr<proto::ReplayStopReq>& req,
                    message::StatusInfo& status) = 0;
    virtual int OnConnectionReset() = 0;
    virtual int32_t GetDevId() = 0;
};

}  // namespace analysis::rokt::device
