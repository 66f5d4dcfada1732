// The relation between the host's device numbers and this card's device indices.
#include "device/task_relationship_mgr.h"

#include "platform/log.h"

namespace Analysis::Rokt::TaskHandle {

void TaskRelationshipMgr::AddRelation(int32_t hostId, int32_t devId) {
    TIV_LOGI("hostId: %d, devId: %d Entering HostId DeviceId Map...", hostId, devId);
    tiv::MutexLock lock(relationMutex);
    relation[hostId] = devId;
}

int32_t TaskRelationshipMgr::GetDevIdByHostId(int32_t hostId) {
    tiv::MutexLock lock(relationMutex);
    const auto found = relation.find(hostId);
    return found != relation.end() ? found->second : hostId;
}

int32_t TaskRelationshipMgr::GetHostIdByDevId(int32_t devId) {
    tiv::MutexLock lock(relationMutex);
    for (const auto& row : relation) {
        if (row.second == devId) {
            return row.first;
        }
    }
    return devId;
}

void TaskRelationshipMgr::ResetRelation() {
    TIV_LOGI("Reset host id - device id relationship");
    tiv::MutexLock lock(relationMutex);
    relation.clear();
}

void TaskRelationshipMgr::AddFlushLocalJob(const std::string& jobId) {
    TIV_LOGI("Job %s should flush locally", jobId.c_str());
    flushLocalJobs.insert(jobId);
}

void TaskRelationshipMgr::RemoveFlushLocalJob(const std::string& jobId) {
    flushLocalJobs.erase(jobId);
}

int32_t TaskRelationshipMgr::GetFlushDevId(const std::string& jobId, int32_t devId) {
    return flushLocalJobs.count(jobId) != 0 ? devId : GetHostIdByDevId(devId);
}

}  // namespace Analysis::Rokt::TaskHandle
