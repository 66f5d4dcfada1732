// Device lists of the driver.
#include "daemon/kbx_dsmi.h"

#include <vector>

#include "platform/driver_api.h"
#include "platform/log.h"

namespace {

// The most ids that one query asks for.
constexpr uint32_t DEVICE_ID_QUERY_NUM = 64;

bool ListArgumentsValid(const uint32_t* devNum, uint32_t len) {
    if (len != DEVICE_LIST_LEN) {
        TIV_LOGE("len is invalid");
        return false;
    }
    if (devNum == nullptr) {
        TIV_LOGE("devNum is nullptr");
        return false;
    }
    return true;
}

int32_t PhyIdOf(uint32_t logId, uint32_t* phyId) {
    const int32_t err = drvDeviceGetPhyIdByIndex(logId, phyId);
    if (err != 0) {
        TIV_LOGE("drvDeviceGetPhyIdByIndex devIds: %u failed, err: %d", logId, err);
        return -1;
    }
    return 0;
}

}  // namespace

int32_t IdeGetDevList(uint32_t* devNum, uint32_t* devIds, uint32_t len) {
    if (!ListArgumentsValid(devNum, len)) {
        return -1;
    }
    int32_t err = drvGetDevNum(devNum);
    if (err != 0) {
        TIV_LOGE("Get physical device number failed, err: %d", err);
        return -1;
    }
    if (*devNum == 0 || *devNum > DEVICE_LIST_LEN) {
        return 0;
    }
    err = drvGetDeviceLocalIDs(devIds, DEVICE_ID_QUERY_NUM);
    if (err != 0) {
        TIV_LOGE("get device IDs failed, err: %d", err);
        return -1;
    }
    return 0;
}

int32_t IdeGetPhyDevList(uint32_t* devNum, uint32_t* phyIds, uint32_t len) {
    if (!ListArgumentsValid(devNum, len)) {
        return -1;
    }
    std::vector<uint32_t> logIds(DEVICE_LIST_LEN, 0);
    const int32_t ret = IdeGetDevList(devNum, logIds.data(), len);
    if (ret != 0) {
        TIV_LOGE("IdeGetDevList failed, ret: %d", ret);
        return -1;
    }
    for (uint32_t i = 0; i < *devNum && i < DEVICE_LIST_LEN; ++i) {
        if (PhyIdOf(logIds[i], &phyIds[i]) != 0) {
            return -1;
        }
    }
    return 0;
}

int32_t IdeGetLogIdByPhyId(uint32_t phyId, uint32_t* logId) {
    if (logId == nullptr) {
        TIV_LOGE("logId is nullptr");
        return -1;
    }
    uint32_t devNum = 0;
    std::vector<uint32_t> logIds(DEVICE_LIST_LEN, 0);
    if (IdeGetDevList(&devNum, logIds.data(), DEVICE_LIST_LEN) != 0) {
        TIV_LOGE("IdeGetDevList failed");
        return -1;
    }
    if (devNum == 0 || devNum > DEVICE_LIST_LEN) {
        return -1;
    }
    for (uint32_t i = 0; i < devNum; ++i) {
        uint32_t candidate = 0;
        if (PhyIdOf(logIds[i], &candidate) != 0) {
            return -1;
        }
        if (candidate == phyId) {
            *logId = logIds[i];
            TIV_LOGI("the logical ID(%u) is a corresponding physical ID(%u)", *logId, phyId);
            return 0;
        }
    }
    return -1;
}

int32_t IdeGetIndexByPhyId(uint32_t phyId, uint32_t* index) {
    if (phyId > DEVICE_LIST_LEN || index == nullptr) {
        return -1;
    }
    const int32_t err = drvDeviceGetIndexByPhyId(phyId, index);
    if (err != 0) {
        TIV_LOGE("drvDeviceGetIndexByPhyId devIds: %u failed, err: %d", phyId, err);
        return -1;
    }
    return 0;
}
