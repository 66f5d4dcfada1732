// The process-wide table of running jobs.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "common/singleton.h"
#include "job_wrapper/collection_job.h"
#include "platform/mutex.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// Starts and stops jobs, and keeps what runs by device and tag.
//
// The table enforces the rule that matters when several tasks run at once: a job that samples the
// whole system runs once, however many devices ask for it; any other job runs once per device. It
// knows no owner: whoever names device and tag of a running job stops it.
//
// What a job throws ends its own start or stop and no other's: it counts as -1.
//
// Any thread. The mutex is held across a job's Process and Uninit, which serialises all starts and
// stops of the process; a job must not call back into the table.
class CollectionRegisterMgr
    : public analysis::rokt::common::singleton::Singleton<CollectionRegisterMgr> {
 public:
    // Enters `job` and starts it. The job's Process result, or -1 when the device is negative, the
    // tag above 38, the job null or its slot taken. A job whose Process fails stays in the table:
    // its stop still calls Uninit.
    [[nodiscard]] int RegisterCollectionJob(int devId, int jobTag,
                                            const std::shared_ptr<ICollectionJob>& job)
        EXCLUDES(mutex);

    // Takes the job out and stops it. The job's Uninit result, or -1 when there is none, or when
    // another device runs the tag as a global job.
    [[nodiscard]] int UnregisterCollectionJob(int devId, int jobTag) EXCLUDES(mutex);

 protected:
    CollectionRegisterMgr() = default;

    // Whether a job of `jobTag` may start for `devId`. When a global job of that tag runs, devId
    // becomes the device that runs it.
    [[nodiscard]] bool IsJobSlotFree(int& devId, int jobTag) REQUIRES(mutex);
    [[nodiscard]] bool InsertCollectionJob(int devId, int jobTag,
                                           const std::shared_ptr<ICollectionJob>& job)
        REQUIRES(mutex);
    // Moves the job out of the table into `job`; its device's row stays.
    [[nodiscard]] bool TakeCollectionJob(int devId, int jobTag,
                                         std::shared_ptr<ICollectionJob>& job) REQUIRES(mutex);

    // Running jobs by device index, then by tag.
    std::map<int, std::map<int, std::shared_ptr<ICollectionJob>>> registry GUARDED_BY(mutex);
    tiv::Mutex mutex;

 private:
    friend class analysis::rokt::common::singleton::Singleton<CollectionRegisterMgr>;
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
