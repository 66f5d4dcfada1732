// The job that counts last-level cache events through the helper script.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "job_wrapper/prof_comm_job.h"
#include "platform/mutex.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// Serves the platform whose driver has no channel for the cache (type 0): the script's statistic
// writes one file, which is uploaded when its process has ended.
class ProfMiniLlcJob : public ProfPeripheralJob {
 public:
    [[nodiscard]] int Init(const std::shared_ptr<CollectionJobCfg>& cfg) override
        EXCLUDES(jobMutex);
    // 0 as well when the events give no command: then nothing runs.
    [[nodiscard]] int Process() override EXCLUDES(jobMutex);
    // Sends the kill and uploads the file whether or not the statistic runs. Waits for the process
    // without a limit, and for the process of an earlier replay again when this one had none. Gives
    // the result of the wait, or of the kill when there was nothing to wait for.
    int Uninit() override EXCLUDES(jobMutex);
    bool IsGlobalJobLevel() override { return true; }

 protected:
    int32_t llcPid GUARDED_BY(jobMutex) = -1;

 private:
    // Empty when the events are refused or the data file cannot be made. Sets the configuration's
    // data file in any case.
    [[nodiscard]] std::string StatCommand() REQUIRES(jobMutex);
    [[nodiscard]] std::string ResultFile() const REQUIRES(jobMutex);
    [[nodiscard]] int StartStatistic(const std::string& command) REQUIRES(jobMutex);
    [[nodiscard]] int WaitForEnd() REQUIRES(jobMutex);
    void UploadResult() REQUIRES(jobMutex);

    // The context of the replay that Init was called for; another task's stop may upload while the
    // owner's next replay makes a new one.
    std::shared_ptr<analysis::rokt::message::JobContext> jobCtx GUARDED_BY(jobMutex);
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
