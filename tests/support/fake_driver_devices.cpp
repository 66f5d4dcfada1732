// Double of the driver: devices and their answers.
#include <algorithm>
#include <utility>

#include "support/fake_driver.h"

namespace tiv::test {

void FakeDriver::SetDevices(std::vector<uint32_t> logicalIds) {
    MutexLock lock(mutex_);
    devices_ = std::move(logicalIds);
}

void FakeDriver::SetPhyId(uint32_t logicalId, uint32_t phyId) {
    MutexLock lock(mutex_);
    phyIds_[logicalId] = phyId;
}

void FakeDriver::SetDeviceInfo(int32_t moduleType, int32_t infoType, int64_t value) {
    MutexLock lock(mutex_);
    deviceInfo_[{moduleType, infoType}] = value;
}

void FakeDriver::ForgetDeviceInfo(int32_t moduleType, int32_t infoType) {
    MutexLock lock(mutex_);
    deviceInfo_.erase({moduleType, infoType});
}

void FakeDriver::SetApiVersion(int32_t version) {
    MutexLock lock(mutex_);
    apiVersion_ = version;
}

void FakeDriver::SetPlatformInfo(uint32_t side) {
    MutexLock lock(mutex_);
    platformInfo_ = side;
}

int32_t FakeDriver::CopyIds(uint32_t* ids, uint32_t len) {
    MutexLock lock(mutex_);
    std::copy_n(devices_.begin(), std::min<size_t>(devices_.size(), len), ids);
    return 0;
}

void FakeDriver::InstallDevices() {
    drvGetDevNum = [this](uint32_t* count) {
        MutexLock lock(mutex_);
        *count = static_cast<uint32_t>(devices_.size());
        return 0;
    };
    drvGetDeviceLocalIDs = [this](uint32_t* ids, uint32_t len) { return CopyIds(ids, len); };
    drvGetDevIDs = [this](uint32_t* ids, uint32_t len) { return CopyIds(ids, len); };
    drvDeviceGetPhyIdByIndex = [this](uint32_t logicalId, uint32_t* phyId) {
        MutexLock lock(mutex_);
        const auto found = phyIds_.find(logicalId);
        *phyId = found == phyIds_.end() ? logicalId : found->second;
        return 0;
    };
    drvDeviceGetIndexByPhyId = [this](uint32_t phyId, uint32_t* index) {
        MutexLock lock(mutex_);
        const auto found = std::find_if(phyIds_.begin(), phyIds_.end(),
                                        [phyId](const auto& row) { return row.second == phyId; });
        *index = found == phyIds_.end() ? phyId : found->first;
        return 0;
    };
    halGetDeviceInfo = [this](uint32_t, int32_t moduleType, int32_t infoType, int64_t* value) {
        MutexLock lock(mutex_);
        const auto found = deviceInfo_.find({moduleType, infoType});
        if (found == deviceInfo_.end()) {
            return static_cast<int32_t>(DRV_NOT_SUPPORTED);
        }
        *value = found->second;
        return 0;
    };
    halGetAPIVersion = [this](int32_t* version) {
        MutexLock lock(mutex_);
        *version = apiVersion_;
        return 0;
    };
    drvGetPlatformInfo = [this](uint32_t* info) {
        MutexLock lock(mutex_);
        *info = platformInfo_;
        return 0;
    };
}

}  // namespace tiv::test
