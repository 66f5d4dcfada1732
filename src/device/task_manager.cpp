// Creation, look-up and end of profiling tasks.
#include "device/task_manager.h"

#include <exception>
#include <utility>

#include "device/prof_job_handler.h"
#include "device/task_relationship_mgr.h"
#include "platform/log.h"

namespace analysis::rokt::device {

using Analysis::Rokt::TaskHandle::TaskRelationshipMgr;

namespace {

// The end of one task must not keep the others from theirs.
void EndTask(const std::string& key, IJobCallback& task) {
    try {
        task.OnConnectionReset();
    } catch (const std::exception& e) {
        TIV_LOGE("Ending a task failed, key=%s: %s", key.c_str(), e.what());
    }
}

}  // namespace

int TaskManager::Init() {
    inited = true;
    return 0;
}

int TaskManager::Uninit() {
    if (!inited) {
        return 0;
    }
    TaskMap ended;
    tiv::MutexLock lock(tableMutex);
    for (const auto& row : tasks) {
        EndTask(row.first, *row.second);
    }
    ended.swap(tasks);
    inited = false;
    lock.Unlock();
    return 0;
}

std::shared_ptr<IJobCallback> TaskManager::CreateTask(
    int32_t hostId, const std::string& key,
    const std::shared_ptr<transport::ITransport>& transport) {
    if (transport == nullptr) {
        TIV_LOGE("CreateTask failed, transport is nullptr");
        return nullptr;
    }
    if (!inited) {
        TIV_LOGE("TaskManager is not inited yet");
        return nullptr;
    }
    TIV_LOGI("CreateTask, hostId(%d), JobId(%s)", hostId, key.c_str());
    if (GetTask(key) != nullptr) {
        TIV_LOGI("JobId(%s) task exist, don't create again", key.c_str());
        return nullptr;
    }
    // Outlives the lock: the last reference of a task may go with it.
    std::shared_ptr<IJobCallback> replaced;
    tiv::MutexLock lock(tableMutex);
    try {
        const auto task = std::make_shared<ProfJobHandler>();
        const int32_t devId = TaskRelationshipMgr::Instance().GetDevIdByHostId(hostId);
        if (task->Init(devId, key, transport) != 0) {
            return nullptr;
        }
        task->SetDevIdOnHost(hostId);
        replaced = std::exchange(tasks[key], task);
        return task;
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return nullptr;
    }
}

std::shared_ptr<IJobCallback> TaskManager::GetTask(const std::string& key) {
    if (!inited) {
        TIV_LOGE("TaskManager is not inited yet");
        return nullptr;
    }
    TIV_LOGI("GetTask, JobId(%s)", key.c_str());
    tiv::MutexLock lock(tableMutex);
    const auto found = tasks.find(key);
    return found != tasks.end() ? found->second : nullptr;
}

bool TaskManager::DeleteTask(const std::string& key) {
    if (!inited) {
        TIV_LOGE("TaskManager is not inited yet");
        return false;
    }
    TIV_LOGI("DeleteTask, JobId(%s)", key.c_str());
    TaskMap::node_type removed;
    tiv::MutexLock lock(tableMutex);
    removed = tasks.extract(key);
    lock.Unlock();
    return !removed.empty();
}

void TaskManager::ConnectionReset(const std::shared_ptr<transport::ITransport>& transport) {
    if (transport == nullptr) {
        TIV_LOGE("ConnectionReset failed, transport is null");
        return;
    }
    // Outlives the lock: the last reference of a task may go with it.
    TaskMap ended;
    tiv::MutexLock lock(tableMutex);
    for (auto row = tasks.begin(); row != tasks.end();) {
        const auto current = row++;
        const auto& task = static_cast<const ProfJobHandler&>(*current->second);
        if (task.GetTransport() == transport) {
            EndTask(current->first, *current->second);
            ended.insert(tasks.extract(current));
        }
    }
    lock.Unlock();
}

}  // namespace analysis::rokt::device
