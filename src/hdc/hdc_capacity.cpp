// The query for the driver's segment.
#include "hdc/hdc_capacity.h"

#include "hdc/hdc_result.h"
#include "platform/log.h"

namespace {

constexpr uint32_t CAPACITY_CHANNEL_TYPE = 2;
constexpr uint32_t MIN_SEGMENT = 1024;
constexpr uint32_t MAX_SEGMENT = 524288;

}  // namespace

int32_t HdcCapacity(uint32_t* segment) {
    if (segment == nullptr) {
        return IDE_DAEMON_ERROR;
    }
    struct HdcCapacity capacity = {};
    capacity.chanType = CAPACITY_CHANNEL_TYPE;
    const int32_t ret = drvHdcGetCapacity(&capacity);
    if (ret != 0) {
        TIV_LOGE("Get Hdc Capacity Failed,error: %d", ret);
        return IDE_DAEMON_ERROR;
    }
    if (capacity.maxSegment < MIN_SEGMENT || capacity.maxSegment > MAX_SEGMENT) {
        TIV_LOGE("Get Hdc Capacity Segment Invaild: %u", capacity.maxSegment);
        return IDE_DAEMON_ERROR;
    }
    *segment = capacity.maxSegment;
    return IDE_DAEMON_OK;
}
