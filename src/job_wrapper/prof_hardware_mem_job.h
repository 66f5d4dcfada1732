// The jobs over the driver's channels for memory hardware: DDR, HBM, last-level cache, and three
// views of device memory.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "job_wrapper/prof_comm_job.h"
#include "platform/mutex.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// The driver's records: words of 32 bits, a wire format shared with the driver. Behind the heads of
// DDR and HBM stand `eventNum` words, 0 for "read" and 1 for "write".
struct TagDdrProfileConfig {
    uint32_t period;    // ms
    uint32_t masterId;  // all ones: every master
    uint32_t eventNum;
};
struct TagTsHbmProfileConfig {
    uint32_t period;    // ms
    uint32_t masterId;  // always all ones
    uint32_t eventNum;
};
struct TagLlcProfileConfig {
    uint32_t period;      // ms
    uint32_t sampleType;  // 1 read, 2 write
};
struct TagMemProfileConfig {
    uint32_t period;  // ms
    uint32_t reserved;
    uint32_t event;  // 0 application and AI stack, 1 device
    uint32_t reservedSecond;
};

static_assert(sizeof(TagDdrProfileConfig) == 12 && sizeof(TagTsHbmProfileConfig) == 12 &&
                  sizeof(TagLlcProfileConfig) == 8 && sizeof(TagMemProfileConfig) == 16,
              "memory records of the driver");

// The records of DDR and HBM differ in names only; this packs either and warns of unknown events.
class ProfBandwidthJob : public ProfPeripheralJob {
 protected:
    // What tells one class's record from the other's.
    struct RecordRule {
        const char* name;          // of the memory, in messages
        const char* mallocFailed;  // message when memory is short
        bool hasMasterId;          // "master_id" in the events asks for the sample parameter's
    };

    [[nodiscard]] int PackRecord(const RecordRule& rule, int32_t interval) REQUIRES(jobMutex);

 private:
    void FillEvents(const JobEventList& events, const RecordRule& rule, uint32_t* words)
        REQUIRES(jobMutex);
};

class ProfDdrJob : public ProfBandwidthJob {
 public:
    ProfDdrJob();
    [[nodiscard]] int Init(const std::shared_ptr<CollectionJobCfg>& cfg) override
        EXCLUDES(jobMutex);
    [[nodiscard]] int SetPeripheralConfig() override REQUIRES(jobMutex);
};

class ProfHbmJob : public ProfBandwidthJob {
 public:
    ProfHbmJob();
    [[nodiscard]] int Init(const std::shared_ptr<CollectionJobCfg>& cfg) override
        EXCLUDES(jobMutex);
    [[nodiscard]] int SetPeripheralConfig() override REQUIRES(jobMutex);
};

// The last-level cache on every platform whose driver reads it; the others have the job over the
// helper script.
class ProfLlcJob : public ProfPeripheralJob {
 public:
    ProfLlcJob();
    [[nodiscard]] int Init(const std::shared_ptr<CollectionJobCfg>& cfg) override
        EXCLUDES(jobMutex);
    [[nodiscard]] int SetPeripheralConfig() override REQUIRES(jobMutex);
};

// The three views of device memory take the same record.
class ProfMemJob : public ProfPeripheralJob {
 protected:
    [[nodiscard]] int PackRecord(uint32_t event, const char* mallocFailed) REQUIRES(jobMutex);
};

class ProfAppMemJob : public ProfMemJob {
 public:
    ProfAppMemJob();
    [[nodiscard]] int Init(const std::shared_ptr<CollectionJobCfg>& cfg) override
        EXCLUDES(jobMutex);
    [[nodiscard]] int SetPeripheralConfig() override REQUIRES(jobMutex);
};

class ProfDevMemJob : public ProfMemJob {
 public:
    ProfDevMemJob();
    [[nodiscard]] int Init(const std::shared_ptr<CollectionJobCfg>& cfg) override
        EXCLUDES(jobMutex);
    [[nodiscard]] int SetPeripheralConfig() override REQUIRES(jobMutex);
};

class ProfAiStackMemJob : public ProfMemJob {
 public:
    ProfAiStackMemJob();
    [[nodiscard]] int Init(const std::shared_ptr<CollectionJobCfg>& cfg) override
        EXCLUDES(jobMutex);
    [[nodiscard]] int SetPeripheralConfig() override REQUIRES(jobMutex);
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
