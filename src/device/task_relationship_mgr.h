// Which device of this card stands behind each device number of the host.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "common/singleton.h"
#include "platform/mutex.h"

namespace Analysis::Rokt::TaskHandle {

// A number that was never related stands for itself.
//
// The relation is guarded by a mutex. The set of jobs that flush locally has none: its three
// operations belong to one thread at a time.
class TaskRelationshipMgr
    : public analysis::rokt::common::singleton::Singleton<TaskRelationshipMgr> {
 public:
    TaskRelationshipMgr() = default;
    ~TaskRelationshipMgr() override = default;

    // Overwrites an earlier relation of the host's number.
    void AddRelation(int32_t hostId, int32_t devId) EXCLUDES(relationMutex);
    int32_t GetDevIdByHostId(int32_t hostId) EXCLUDES(relationMutex);
    // The smallest host number of the device.
    int32_t GetHostIdByDevId(int32_t devId) EXCLUDES(relationMutex);
    void ResetRelation() EXCLUDES(relationMutex);

    void AddFlushLocalJob(const std::string& jobId);
    void RemoveFlushLocalJob(const std::string& jobId);
    // The number under which the job's data is delivered: the device's own for a job that flushes
    // locally, the host's otherwise.
    int32_t GetFlushDevId(const std::string& jobId, int32_t devId);

 private:
    tiv::Mutex relationMutex;
    // Host number to device index.
    std::map<int32_t, int32_t> relation GUARDED_BY(relationMutex);
    std::set<std::string> flushLocalJobs;
};

}  // namespace Analysis::Rokt::TaskHandle
