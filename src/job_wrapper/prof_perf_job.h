// The job that samples events of the control CPU through the helper script.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "job_wrapper/collection_job.h"
#include "job_wrapper/perf_extra_task.h"
#include "platform/mutex.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// Starts the script as a recorder, which rolls numbered files, and a task that converts and uploads
// them. A list of events is its only switch.
//
//   Process: recorder --> task        Uninit: kill --> wait for the recorder --> task
//
// The task ends last, since its last pass has to see the file that the recorder leaves behind. The
// recorder is not watched while it runs: a dead one shows up as an exit code at the end. Uninit
// waits for it without a limit.
class ProfCtrlcpuJob : public ICollectionJob {
 public:
    // Makes the device's working directory and a task for the replay; a task that still runs ends.
    [[nodiscard]] int Init(const std::shared_ptr<CollectionJobCfg>& cfg) override
        EXCLUDES(jobMutex);
    // 0 as well when the events give no command: then nothing runs.
    [[nodiscard]] int Process() override EXCLUDES(jobMutex);
    // Sends the kill whether or not a recorder runs. Gives the result of the wait, or of the kill
    // when there was nothing to wait for.
    int Uninit() override EXCLUDES(jobMutex);
    bool IsGlobalJobLevel() override { return true; }

 protected:
    // Empty when the events are refused or the data file cannot be made.
    [[nodiscard]] std::string RecordCommand(const std::vector<std::string>& events) const
        REQUIRES(jobMutex);

    int32_t ctrlCpuPid GUARDED_BY(jobMutex) = -1;
    std::shared_ptr<CollectionJobCfg> collectionJobCfg GUARDED_BY(jobMutex);
    std::shared_ptr<PerfExtraTask> perfExtraTask_ GUARDED_BY(jobMutex);

 private:
    [[nodiscard]] int MakeTask() REQUIRES(jobMutex);
    [[nodiscard]] std::string PrepareDataFile() const REQUIRES(jobMutex);
    [[nodiscard]] int StartRecorder(const std::vector<std::string>& command) REQUIRES(jobMutex);
    [[nodiscard]] int StartTask() REQUIRES(jobMutex);
    [[nodiscard]] int EndRecorder() REQUIRES(jobMutex);
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
