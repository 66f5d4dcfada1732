// The one door to the driver's profiling functions: start and stop of channels, reading, polling,
// flushing, and the channel list.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "driver/drv_channels_info.h"
#include "driver/drv_start_records.h"
#include "message/prof_params.h"

namespace analysis::rokt::driver {

// Marks the layer as a type for callers that want one; it carries no state.
class AiDrvProfApi {
 public:
    virtual ~AiDrvProfApi() = default;
};

// What a job tells about the channel it starts.
class DrvPeripheralProfileCfg {
 public:
    virtual ~DrvPeripheralProfileCfg() = default;

    int32_t profDeviceId = -1;
    int32_t profSamplePeriod = 0;        // ms
    int32_t profSamplePeriodSecond = 0;  // ms; the AI vector core's period of an ffts start
    uint32_t profChannel = 0;
    void* configBuffer =
        nullptr;              // the driver's record; the job owns it and frees it after the start
    uint32_t configSize = 0;  // bytes
    uint32_t cfgMode = 0;
    uint32_t cfgType = 0;
    uint32_t threshold = 0;
    uint32_t reserved = 0;
    std::string profDataFilePath;
    std::string profDataFile;
};

// Every operation gives 0 on success and -1 on failure unless told otherwise, logs its own failure,
// never retries and has no state: any thread may call it. Events are hexadecimal texts, with or
// without "0x", cut to the width of the record's field.

// Asks the driver for the channels of info.deviceId; takes chip type and channels. Entries with an
// id that is 0 or above 160 are left out.
[[nodiscard]] int DrvGetChannels(DrvProfChannelsInfo& info);

// Starts a channel with the record that the job brings in configBuffer.
[[nodiscard]] int DrvPeripheralStart(const DrvPeripheralProfileCfg& cfg);
[[nodiscard]] int DrvTsCpuStart(const DrvPeripheralProfileCfg& cfg,
                                const std::vector<std::string>& events);
// At most 8 events.
[[nodiscard]] int DrvAicoreStart(const DrvPeripheralProfileCfg& cfg,
                                 const std::vector<int>& coreIds,
                                 const std::vector<std::string>& events);
// At most 8 events.
[[nodiscard]] int DrvAicoreTaskBasedStart(int32_t deviceId, uint32_t channel,
                                          const std::vector<std::string>& events);
[[nodiscard]] int DrvL2CacheTaskStart(int32_t deviceId, uint32_t channel,
                                      const std::vector<std::string>& events);
[[nodiscard]] int DrvTsFwStart(const DrvPeripheralProfileCfg& cfg,
                               const analysis::rokt::message::ProfileParams& params);
[[nodiscard]] int DrvStarsSocLogStart(const DrvPeripheralProfileCfg& cfg,
                                      const analysis::rokt::message::ProfileParams& params);
// At most 8 events per list; the caller holds to it.
[[nodiscard]] int DrvFftsProfileStart(const DrvPeripheralProfileCfg& cfg,
                                      const std::vector<int>& aiCoreIds,
                                      const std::vector<std::string>& aiCoreEvents,
                                      const std::vector<int>& vectorCoreIds,
                                      const std::vector<std::string>& vectorCoreEvents);
[[nodiscard]] int DrvInstrProfileStart(int32_t deviceId, uint32_t channel, uint32_t period);
[[nodiscard]] int DrvHwtsLogStart(int32_t deviceId, uint32_t channel);
[[nodiscard]] int DrvFmkDataStart(int32_t deviceId, uint32_t channel);

// Fills one sub-record of an ffts start. `mode` is 0 for the AI cores, which take the first period
// of `cfg`, and 1 for the AI vector cores, which take the second. Says nothing about a list of more
// than 8 events; the record has room for the first 8.
void DrvPackPmuParam(int mode, const DrvPeripheralProfileCfg& cfg, const std::vector<int>& coreIds,
                     const std::vector<std::string>& events, FftsPmuRecord& record);

[[nodiscard]] int DrvStop(uint32_t deviceId, uint32_t channel);

// Reads at most `bufSize` bytes. Returns the bytes read, 0 when the channel is empty or stopped, -1
// when the driver failed. Does not block; one reader per channel at a time.
[[nodiscard]] int DrvChannelRead(uint32_t deviceId, uint32_t channel, char* outBuf,
                                 uint32_t bufSize);

// Waits until a channel has data, at most `timeoutSeconds`. `outBuf` has room for `num` pairs of
// device and channel id. Returns the number of pairs, -4 at once while no channel is open, -1 on
// failure or when the driver claims more than `num`; other codes of the driver pass as they are.
[[nodiscard]] int DrvChannelPoll(void* outBuf, uint32_t num, uint32_t timeoutSeconds);

// Makes held-back bytes readable; `size` receives their number. -1 with a driver that cannot.
[[nodiscard]] int DrvProfFlush(uint32_t deviceId, uint32_t channel, uint32_t* size);

}  // namespace analysis::rokt::driver
