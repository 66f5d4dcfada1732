// What the jobs over driver channels share: the reader behind a channel, and its start and stop.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "driver/ai_drv_prof_api.h"
#include "job_wrapper/collection_job.h"
#include "platform/mutex.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// True when the configuration, its common parameters and the sample configuration are there.
[[nodiscard]] bool HasCommonParams(const std::shared_ptr<CollectionJobCfg>& cfg);
// The same with at least one event.
[[nodiscard]] bool HasEvents(const std::shared_ptr<CollectionJobCfg>& cfg);

// Connects a job to the poller that drains driver channels: makes the reader of a channel and takes
// it away again. Failures are logged and go no further, so that a channel may run without a reader.
class ProfDrvJob : public ICollectionJob {
 protected:
    // Files a reader for the channel with the poller. `key` is the job id. `filePath` lies below
    // the task's result directory, and what follows that directory names the data at the host.
    void AddReader(const std::string& key, int32_t devId, uint32_t channelId,
                   const std::string& filePath) REQUIRES(jobMutex);
    // Ends the reader; its last bytes become a chunk.
    void RemoveReader(const std::string& key, int32_t devId, uint32_t channelId) REQUIRES(jobMutex);

    // The entries joined by commas; empty without a list.
    [[nodiscard]] static std::string eventsText(const JobEventList& events);
    // `name`, a dot and `number`.
    [[nodiscard]] static std::string SuffixedName(const std::string& name, int32_t number);
    // Entries that are "read" or "write".
    [[nodiscard]] static size_t CountReadWrite(const JobEventList& events);

    std::shared_ptr<CollectionJobCfg> collectionJobCfg GUARDED_BY(jobMutex);
};

// A job over one peripheral channel. A concrete class sets the channel and, where the channel takes
// one, packs the driver's record in SetPeripheralConfig.
//
//   Process: reader --> driver start        Uninit: driver stop --> reader
//
// The reader is there before the first byte and goes after the last. A channel that the device does
// not have, or that is switched off, is no failure: the job counts as running and no data comes.
class ProfPeripheralJob : public ProfDrvJob {
 public:
    [[nodiscard]] int Init(const std::shared_ptr<CollectionJobCfg>& cfg) override
        EXCLUDES(jobMutex);
    [[nodiscard]] int Process() override EXCLUDES(jobMutex);
    // Always 0. Asks again whether the channel is valid: when the device's list has changed since
    // the start, the channel and its reader are left as they are.
    int Uninit() override EXCLUDES(jobMutex);
    // Fills configBuffer and configSize of peripheralCfg; the buffer is freed after the start. 0,
    // or the result of Process.
    [[nodiscard]] virtual int SetPeripheralConfig() REQUIRES(jobMutex);

 protected:
    using DrvPeripheralProfileCfg = analysis::rokt::driver::DrvPeripheralProfileCfg;

    int32_t samplePeriod GUARDED_BY(jobMutex) = 100;  // ms
    uint32_t channelId = 0;                           // constant after construction
    DrvPeripheralProfileCfg peripheralCfg GUARDED_BY(jobMutex);
    std::string eventsStr GUARDED_BY(jobMutex);

 private:
    [[nodiscard]] std::string DataFilePath() const REQUIRES(jobMutex);
    [[nodiscard]] bool CheckCommonParams() const REQUIRES(jobMutex);
    [[nodiscard]] bool CheckChannel() const REQUIRES(jobMutex);
    void FillStart() REQUIRES(jobMutex);
    [[nodiscard]] int StartChannel() REQUIRES(jobMutex);
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
