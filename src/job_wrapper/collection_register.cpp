// The rules by which jobs enter and leave the table of running jobs.
#include "job_wrapper/collection_register.h"

#include <exception>
#include <utility>

#include "platform/log.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

namespace {

bool AreArgumentsValid(int devId, int jobTag) { return devId >= 0 && jobTag < JOB_TAG_COUNT; }

}  // namespace

int CollectionRegisterMgr::RegisterCollectionJob(int devId, int jobTag,
                                                 const std::shared_ptr<ICollectionJob>& job) {
    if (!AreArgumentsValid(devId, jobTag) || job == nullptr) {
        return -1;
    }
    const tiv::MutexLock lock(mutex);
    try {
        if (!InsertCollectionJob(devId, jobTag, job)) {
            return -1;
        }
        TIV_LOGD("Collection Job Registeter, devId:%d jobTag:%d", devId, jobTag);
        return job->Process();
    } catch (const std::exception& e) {
        TIV_LOGE("Start of a collection job failed, devId=%d, jobTag=%d: %s", devId, jobTag,
                 e.what());
        return -1;
    }
}

int CollectionRegisterMgr::UnregisterCollectionJob(int devId, int jobTag) {
    if (!AreArgumentsValid(devId, jobTag)) {
        return -1;
    }
    // Declared before the lock: the last reference to the job goes after the mutex.
    std::shared_ptr<ICollectionJob> job;
    const tiv::MutexLock lock(mutex);
    try {
        if (!TakeCollectionJob(devId, jobTag, job)) {
            return -1;
        }
        TIV_LOGD("Collection Job Unregisteter, devId:%d jobTag:%d", devId, jobTag);
        return job != nullptr ? job->Uninit() : -1;
    } catch (const std::exception& e) {
        TIV_LOGE("Stop of a collection job failed, devId=%d, jobTag=%d: %s", devId, jobTag,
                 e.what());
        return -1;
    }
}

bool CollectionRegisterMgr::IsJobSlotFree(int& devId, int jobTag) {
    if (!AreArgumentsValid(devId, jobTag)) {
        return false;
    }
    for (const auto& row : registry) {
        const auto found = row.second.find(jobTag);
        if (found != row.second.end() && found->second != nullptr &&
            found->second->IsGlobalJobLevel()) {
            devId = row.first;
            TIV_LOGW("IsGlobalJobLevel, devId:%d jobTag:%d", devId, jobTag);
            return false;
        }
    }
    const auto row = registry.find(devId);
    if (row == registry.end()) {
        return true;
    }
    const auto found = row->second.find(jobTag);
    return found == row->second.end() || found->second == nullptr;
}

bool CollectionRegisterMgr::InsertCollectionJob(int devId, int jobTag,
                                                const std::shared_ptr<ICollectionJob>& job) {
    if (!AreArgumentsValid(devId, jobTag) || job == nullptr) {
        return false;
    }
    int slotDevId = devId;
    if (!IsJobSlotFree(slotDevId, jobTag)) {
        return false;
    }
    registry[devId][jobTag] = job;
    return true;
}

bool CollectionRegisterMgr::TakeCollectionJob(int devId, int jobTag,
                                              std::shared_ptr<ICollectionJob>& job) {
    if (!AreArgumentsValid(devId, jobTag)) {
        return false;
    }
    int holderDevId = devId;
    if (IsJobSlotFree(holderDevId, jobTag) || holderDevId != devId) {
        return false;
    }
    auto& row = registry[devId];
    const auto found = row.find(jobTag);
    job = std::move(found->second);
    row.erase(found);
    return true;
}

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
