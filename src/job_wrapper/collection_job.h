// The interface of every collection job, and the configuration that a job receives.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "job_wrapper/job_tags.h"
#include "platform/mutex.h"

namespace analysis {
namespace rokt {
namespace message {
struct JobContext;
struct ProfileParams;
}  // namespace message
}  // namespace rokt
}  // namespace analysis

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// What all jobs of one task share. The task's engine owns it and every configuration of the task
// points to it.
struct CollectionJobCommonParams {
    int32_t devId = 0;        // the device's own index
    int32_t devIdOnHost = 0;  // the host's number for the device
    int32_t devIdFlush = 0;   // the number under which data is delivered
    std::string tmpResultDir;
    // Set when the task starts; jobs read it and leave it as it is.
    std::shared_ptr<analysis::rokt::message::ProfileParams> params;
    // There from the start of a replay to its stop.
    std::shared_ptr<analysis::rokt::message::JobContext> jobCtx;
};

using JobEventList = std::shared_ptr<std::vector<std::string>>;

struct JobEventSet {
    std::shared_ptr<std::vector<int32_t>> cores;
    JobEventList events;  // through EventsOf and StoreEvents only
};

// The configuration of one job, a row of the engine's table.
struct CollectionJobCfg {
    int32_t jobTag = 0;
    std::string dataFile;  // empty: the job takes the file of its tag
    // The first set holds the job's own events; no job of the device fills the second.
    std::array<JobEventSet, 2> eventSets;
    std::shared_ptr<CollectionJobCommonParams> comParams;
};

// A job's own events. The stop of another task on the same device may drop them on its thread while
// the owner's replay hands in new ones, hence the atomic access; a list is never changed.
[[nodiscard]] inline JobEventList EventsOf(const CollectionJobCfg& cfg) {
    return std::atomic_load(&cfg.eventSets[0].events);
}
inline void StoreEvents(CollectionJobCfg& cfg, const JobEventList& events) {
    std::atomic_store(&cfg.eventSets[0].events, events);
}

// One piece of collection that can be asked whether it runs, started and stopped.
//
// A job lives as long as its engine and goes through Init, Process and Uninit once per replay; Init
// runs at each replay start, the other two only for a job that agreed. Process and Uninit are
// called with the registry's mutex held, so a job never calls back into the registry.
//
// Init runs on the control session's thread outside the registry, while the stop of another task on
// the same device may run Uninit of the same object: every job takes jobMutex in the three.
class ICollectionJob {
 public:
    ICollectionJob() = default;
    virtual ~ICollectionJob() = default;
    ICollectionJob(const ICollectionJob&) = delete;
    ICollectionJob& operator=(const ICollectionJob&) = delete;

    // 0 when the job agrees to run under `cfg`. Anything else is an ordinary "not this time".
    [[nodiscard]] virtual int Init(const std::shared_ptr<CollectionJobCfg>& cfg) = 0;
    // Starts the job. 0, or non-zero when it could not start.
    [[nodiscard]] virtual int Process() = 0;
    // Stops the job, also one whose Process failed.
    virtual int Uninit() = 0;
    // True for a job that samples the whole system: the registry lets it run once over all devices.
    virtual bool IsGlobalJobLevel() { return false; }
    virtual int32_t GetJobTag() { return jobTag; }
    virtual std::string GetJobName() { return jobName; }

 protected:
    int32_t jobTag = 0;
    std::string jobName;

    // Held by each job in Init, Process and Uninit; taken after the registry's mutex.
    tiv::Mutex jobMutex;
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
