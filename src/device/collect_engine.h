// The work of one job on one device: its directories, its channels and its table of collection
// jobs.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hdc/i_transport.h"
#include "job_wrapper/collection_job.h"
#include "message/status_info.h"

namespace analysis::rokt::device {

struct CollectionJobEntry {
    int32_t tag = 0;
    std::shared_ptr<Analysis::Rokt::JobWrapper::CollectionJobCfg> cfg;
    // Null for an unused row.
    std::shared_ptr<Analysis::Rokt::JobWrapper::ICollectionJob> job;
};

// Runs the collection of one job for its task.
//
//   New --Init--> Ready --CollectStart--> Collecting --CollectStop--> Finished --Uninit--> Gone
//
// Only in Collecting do ReplayStart and ReplayStop work, any number of times; the jobs run between
// them. Within a replay a job that declines is an ordinary "No Run": the replay fails only when no
// job at all started.
//
// A job's working directories stand between CollectStart and CollectStop. Their names come from the
// job id of the sample configuration, which nobody checks: a path that would leave the common
// directory is neither made nor removed.
//
// No lock of its own: the task that owns the engine serialises its calls. One process-wide mutex
// guards the directories of all engines.
class CollectEngine {
 public:
    using EventList = std::shared_ptr<std::vector<std::string>>;

    CollectEngine() = default;
    virtual ~CollectEngine();
    CollectEngine(const CollectEngine&) = delete;
    CollectEngine& operator=(const CollectEngine&) = delete;

    // Makes the job table for a device. Returns 0, or -1 when memory ran out.
    [[nodiscard]] int Init(int32_t devIndex);
    // The host's number of the device, under which data is delivered.
    void SetDevIdOnHost(int32_t id);

    // Each returns 0 or -1 and tells the host's part in `status`. CollectStop and a failed
    // ReplayStart or ReplayStop block until the jobs have ended and the data session is delivered.
    [[nodiscard]] int CollectStart(const std::string& config, message::StatusInfo& status);
    [[nodiscard]] int ReplayStart(const EventList& ctrlEvents, message::StatusInfo& status,
                                  const EventList& llcEvents);
    [[nodiscard]] int ReplayStop(message::StatusInfo& status);
    [[nodiscard]] int CollectStop(message::StatusInfo& status);

    // Stops a collection that still runs and lets go of the parameters.
    void Uninit();

 private:
    using CollectionJobCfg = Analysis::Rokt::JobWrapper::CollectionJobCfg;
    using CommonParams = Analysis::Rokt::JobWrapper::CollectionJobCommonParams;

    void CreateCollectionJobArray();
    [[nodiscard]] bool CreateJobs();
    int PrepareCollect(const std::string& config, message::StatusInfo& status);
    int OpenChannels();
    int CreateTmpRootResultDir(std::string& dir);
    void RemoveCollectedData();
    int CheckPmuEventIsValid(const EventList& ctrlEvents, const EventList& llcEvents) const;
    int CreateJobContext();
    void SetEvents(const EventList& ctrlEvents, const EventList& llcEvents);
    bool RunJob(const CollectionJobEntry& entry, int32_t tag, int32_t failCount);
    int CollectionJobRegisterAndRun(message::StatusInfo& status);
    int StopJobs(message::StatusInfo& status);
    // The job id of the sample configuration, empty without one.
    std::string SampleJobId() const;

    // Carried for the owner; nothing here sets or reads it.
    std::shared_ptr<transport::ITransport> transport;
    // The text of the current job.
    std::string sampleConfig;
    // From Init to Uninit; shared with every configuration of the table.
    std::shared_ptr<CommonParams> commonParams;
    // By tag.
    std::array<CollectionJobEntry, Analysis::Rokt::JobWrapper::JOB_TAG_COUNT> jobTable;
    bool isFinished = false;
    bool isInited = false;
    std::string tmpRootResultDir;
    bool isStarted = false;
};

}  // namespace analysis::rokt::device
