// The configuration records that travel with prof_drv_start: a wire format shared with the driver.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/driver_api.h"

namespace analysis::rokt::driver {

// Events that one start may carry where the record has a fixed room for them.
constexpr size_t PMU_EVENT_MAX = 8;

//   0      4            8        12           16        20         52
//   +------+------------+--------+------------+---------+----------+-----+
//   | mode | almostFull | period |  coreMask  | eventNum | event[8] | tag |
//   +------+------------+--------+------------+---------+----------+-----+
struct AicoreRecord {
    uint32_t mode;
    uint32_t almostFull;
    uint32_t period;
    uint32_t coreMask;
    uint32_t eventNum;
    uint32_t event[PMU_EVENT_MAX];
    uint32_t tag;
};

// Each word but the period is a switch; memCpy holds two sets of bits.
struct TsFwRecord {
    uint32_t period;
    uint32_t taskTrack;
    uint32_t cpuUsage;
    uint32_t aiCoreStatus;
    uint32_t timeLine;
    uint32_t aiVecStatus;
    uint32_t keyPoint;
    uint32_t memCpy;
};

struct StarsSocLogRecord {
    uint32_t acsq_task;
    uint32_t acc_pmu;
    uint32_t cdqm_reg;
    uint32_t vimg_vpc_block;
    uint32_t vimg_jpegd_block;
    uint32_t vimg_jpede_block;
    uint32_t ffts_context_task;
    uint32_t ffts_block;
    uint32_t sdma_dmu;
    uint32_t tag;
};

struct FftsPmuRecord {
    uint32_t type;
    uint32_t period;
    uint32_t coreMask;
    uint32_t eventNum;
    uint16_t event[PMU_EVENT_MAX];
};

//   0         4                   36                         68
//   +---------+-------------------+--------------------------+-----+
//   | cfgMode | pmu[0]: AI core   | pmu[1]: AI vector core   | tag |
//   +---------+-------------------+--------------------------+-----+
struct FftsRecord {
    uint32_t cfgMode;
    FftsPmuRecord pmu[2];
    uint32_t tag;
};

static_assert(sizeof(ProfStartPara) == 32 && offsetof(ProfStartPara, channelType) == 0 &&
                  offsetof(ProfStartPara, samplePeriod) == 4 &&
                  offsetof(ProfStartPara, realTime) == 8 &&
                  offsetof(ProfStartPara, userData) == 16 &&
                  offsetof(ProfStartPara, userDataSize) == 24,
              "start parameters of the driver");
static_assert(sizeof(AicoreRecord) == 56 && offsetof(AicoreRecord, coreMask) == 12 &&
                  offsetof(AicoreRecord, event) == 20 && offsetof(AicoreRecord, tag) == 52,
              "AI core record of the driver");
static_assert(sizeof(TsFwRecord) == 32 && offsetof(TsFwRecord, timeLine) == 16 &&
                  offsetof(TsFwRecord, memCpy) == 28,
              "ts firmware record of the driver");
static_assert(sizeof(StarsSocLogRecord) == 40 &&
                  offsetof(StarsSocLogRecord, ffts_context_task) == 24 &&
                  offsetof(StarsSocLogRecord, ffts_block) == 28 &&
                  offsetof(StarsSocLogRecord, tag) == 36,
              "stars record of the driver");
static_assert(sizeof(FftsPmuRecord) == 32 && offsetof(FftsPmuRecord, event) == 16,
              "sub-record of the ffts record");
static_assert(sizeof(FftsRecord) == 72 && offsetof(FftsRecord, pmu) == 4 &&
                  offsetof(FftsRecord, tag) == 68,
              "ffts record of the driver");
static_assert(sizeof(ProfDrvChannelEntry) == 40 &&
                  offsetof(ProfDrvChannelEntry, channelType) == 32 &&
                  offsetof(ProfDrvChannelEntry, channelId) == 36,
              "channel entry of the driver");
static_assert(sizeof(ProfDrvChannelList) == 6408 && offsetof(ProfDrvChannelList, channels) == 8,
              "channel list of the driver");

}  // namespace analysis::rokt::driver
