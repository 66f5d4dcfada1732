// The table of the profiling tasks.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "common/singleton.h"
#include "device/job_callback.h"
#include "hdc/i_transport.h"
#include "platform/mutex.h"

namespace analysis::rokt::device {

// Owns the tasks by task key: the device id of the job context, "_", and its job id. The key is
// opaque here.
//
// A task leaves by DeleteTask, which stops nothing, or by the loss of its connection, which ends
// it. The table's mutex is held through each such end, so that creation and look-up wait for it:
// nothing that runs there may come back into the table or join a receiver.
//
// CreateTask looks for the key before it takes the mutex for the insertion; of two creations of one
// key at the same moment the later row stands.
class TaskManager : public common::singleton::Singleton<TaskManager> {
 public:
    TaskManager() = default;
    ~TaskManager() override = default;

    // Returns 0. No task operation works before.
    int Init();

    // Ends every task, whatever its transport, and clears the table. Returns 0.
    int Uninit() EXCLUDES(tableMutex);

    // Makes the task of a job on the device that `hostId` stands for. Null for a null transport,
    // when not inited, and when the key has a task.
    std::shared_ptr<IJobCallback> CreateTask(
        int32_t hostId, const std::string& key,
        const std::shared_ptr<transport::ITransport>& transport) EXCLUDES(tableMutex);

    // Null when absent or not inited.
    std::shared_ptr<IJobCallback> GetTask(const std::string& key) EXCLUDES(tableMutex);

    // Drops the table's reference. True when there was one.
    bool DeleteTask(const std::string& key) EXCLUDES(tableMutex);

    // Ends and removes every task on this transport object. Blocks until they have ended.
    void ConnectionReset(const std::shared_ptr<transport::ITransport>& transport)
        EXCLUDES(tableMutex);

 private:
    using TaskMap = std::map<std::string, std::shared_ptr<IJobCallback>>;

    std::atomic<bool> inited{false};
    // The objects are always ProfJobHandler.
    TaskMap tasks GUARDED_BY(tableMutex);
    tiv::Mutex tableMutex;
};

}  // namespace analysis::rokt::device
