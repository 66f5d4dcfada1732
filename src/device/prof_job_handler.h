// One profiling task: the life of one job on one device.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "device/job_callback.h"
#include "hdc/i_transport.h"
#include "platform/mutex.h"

namespace analysis::rokt::device {

class CollectEngine;

// Turns the control requests of a job, and the loss of its connection, into calls of a
// CollectEngine.
//
//   Created --OnJobStart--> Running --OnJobEnd, or a failed Start or End--> Ended
//
// A request that does not fit the state is refused with "Profiling is not started on device" or
// "Profiling is already running on device". Dropping the engine ends a collection that still runs,
// so that after a failed Start or End the data session is finished before the host gets its answer.
//
// One mutex serialises the requests: two control sessions, or a session and the loss of another,
// can address one task. It is taken inside the task table's mutex.
class ProfJobHandler : public IJobCallback {
 public:
    ProfJobHandler() = default;
    ~ProfJobHandler() override;
    ProfJobHandler(const ProfJobHandler&) = delete;
    ProfJobHandler& operator=(const ProfJobHandler&) = delete;

    // Returns 0, or -1 for a null transport. Before the task is shared.
    [[nodiscard]] int Init(int32_t devIndex, const std::string& taskKey,
                           const std::shared_ptr<transport::ITransport>& sessionTransport);
    // Returns 0. After the task was shared: only the destructor calls it.
    int Uninit();
    void SetDevIdOnHost(int32_t id) { devIdOnHost = id; }
    const std::string& GetJobId() const { return jobId; }
    std::shared_ptr<transport::ITransport> GetTransport() const { return transport; }

    int OnJobStart(const std::shared_ptr<proto::JobStartReq>& req,
                   message::StatusInfo& status) override EXCLUDES(taskMutex);
    int OnJobEnd(message::StatusInfo& status) override EXCLUDES(taskMutex);
    int Start(const std::shared_ptr<proto::ReplayStartReq>& req,
              message::StatusInfo& status) override EXCLUDES(taskMutex);
    int End(const std::shared_ptr<proto::ReplayStopReq>& req, message::StatusInfo& status) override
        EXCLUDES(taskMutex);
    int OnConnectionReset() override EXCLUDES(taskMutex);
    int32_t GetDevId() override { return devIndexId; }

    // Makes the engine of a job. Leaves `status` at 1: starting the collection settles it.
    virtual int InitEngine(message::StatusInfo& status) REQUIRES(taskMutex);

    // Ends a started task and drops its engine; an engine without a started task stays.
    void ResetTask() REQUIRES(taskMutex);

 private:
    int RunReplayStart(const std::shared_ptr<proto::ReplayStartReq>& req,
                       message::StatusInfo& status) REQUIRES(taskMutex);
    int RunReplayStop(const std::shared_ptr<proto::ReplayStopReq>& req, message::StatusInfo& status)
        REQUIRES(taskMutex);

    bool inited = false;
    // Null except while a job lives.
    std::shared_ptr<CollectEngine> engine GUARDED_BY(taskMutex);
    // Constant between Init and Uninit.
    int32_t devIndexId = -1;
    int32_t devIdOnHost = -1;
    std::string jobId;
    bool _is_started GUARDED_BY(taskMutex) = false;
    std::shared_ptr<transport::ITransport> transport;

 protected:
    // Held through each request.
    tiv::Mutex taskMutex;
};

}  // namespace analysis::rokt::device
