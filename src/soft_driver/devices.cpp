// The C functions that answer what devices there are and what they are.
#include <algorithm>

#include "soft_driver/exports.h"
#include "soft_driver/settings.h"

using tiv::soft_driver::DeviceSettings;
using tiv::soft_driver::Fail;
using tiv::soft_driver::Guarded;
using tiv::soft_driver::ProcessSettings;
using tiv::soft_driver::Settings;

namespace {

enum { MODULE_SYSTEM = 0 };
enum { INFO_VERSION = 1, INFO_HOST_FREQUENCY = 24, INFO_DEVICE_FREQUENCY = 25 };

int32_t FillIds(uint32_t* ids, uint32_t length) {
    const Settings* settings = ProcessSettings();
    if (settings == nullptr) {
        return -1;
    }
    if (ids == nullptr) {
        return Fail(EINVAL);
    }
    const size_t count = std::min<size_t>(length, settings->devices.size());
    for (size_t i = 0; i < count; ++i) {
        ids[i] = settings->devices[i].logicalId;
    }
    return 0;
}

int32_t Answer(const std::optional<int64_t>& answer, int64_t* value) {
    if (!answer.has_value()) {
        return Fail(ENOTSUP, DRV_NOT_SUPPORTED);
    }
    *value = *answer;
    return 0;
}

// What the configuration lists under "info" goes before what the driver knows by itself.
int32_t DeviceInfo(const DeviceSettings& device, int32_t module, int32_t info, int64_t* value) {
    const auto listed = device.info.find({module, info});
    if (listed != device.info.end()) {
        *value = listed->second;
        return 0;
    }
    if (module == MODULE_SYSTEM && info == INFO_VERSION) {
        *value = static_cast<int64_t>(device.chipId << 8 | device.chipVersion);
        return 0;
    }
    if (module == MODULE_SYSTEM && info == INFO_HOST_FREQUENCY) {
        return Answer(device.hostFrequencyKhz, value);
    }
    if (module == MODULE_SYSTEM && info == INFO_DEVICE_FREQUENCY) {
        return Answer(device.deviceFrequencyKhz, value);
    }
    return Fail(ENOTSUP, DRV_NOT_SUPPORTED);
}

}  // namespace

int32_t drvGetDevNum(uint32_t* count) {
    return Guarded([=] {
        const Settings* settings = ProcessSettings();
        if (settings == nullptr) {
            return -1;
        }
        if (count == nullptr) {
            return Fail(EINVAL);
        }
        *count = static_cast<uint32_t>(settings->devices.size());
        return 0;
    });
}

int32_t drvGetDeviceLocalIDs(uint32_t* ids, uint32_t len) {
    return Guarded([=] { return FillIds(ids, len); });
}

int32_t drvGetDevIDs(uint32_t* ids, uint32_t len) {
    return Guarded([=] { return FillIds(ids, len); });
}

int32_t drvDeviceGetPhyIdByIndex(uint32_t logicalId, uint32_t* phyId) {
    return Guarded([=] {
        const Settings* settings = ProcessSettings();
        if (settings == nullptr) {
            return -1;
        }
        const DeviceSettings* device = settings->FindDevice(logicalId);
        if (device == nullptr || phyId == nullptr) {
            return Fail(phyId == nullptr ? EINVAL : ENODEV);
        }
        *phyId = device->physicalId;
        return 0;
    });
}

int32_t drvDeviceGetIndexByPhyId(uint32_t phyId, uint32_t* index) {
    return Guarded([=] {
        const Settings* settings = ProcessSettings();
        if (settings == nullptr) {
            return -1;
        }
        if (index == nullptr) {
            return Fail(EINVAL);
        }
        for (const DeviceSettings& device : settings->devices) {
            if (device.physicalId == phyId) {
                *index = device.logicalId;
                return 0;
            }
        }
        return Fail(ENODEV);
    });
}

int32_t halGetDeviceInfo(uint32_t devId, int32_t moduleType, int32_t infoType, int64_t* value) {
    return Guarded([=] {
        const Settings* settings = ProcessSettings();
        if (settings == nullptr) {
            return -1;
        }
        const DeviceSettings* device = settings->FindDevice(devId);
        if (device == nullptr || value == nullptr) {
            return Fail(value == nullptr ? EINVAL : ENODEV);
        }
        return DeviceInfo(*device, moduleType, infoType, value);
    });
}

int32_t halGetAPIVersion(int32_t* version) {
    return Guarded([=] {
        const Settings* settings = ProcessSettings();
        if (settings == nullptr) {
            return -1;
        }
        if (version == nullptr) {
            return Fail(EINVAL);
        }
        *version = settings->apiVersion;
        return 0;
    });
}

int32_t drvGetPlatformInfo(uint32_t* info) {
    return Guarded([=] {
        const Settings* settings = ProcessSettings();
        if (settings == nullptr) {
            return -1;
        }
        if (info == nullptr) {
            return Fail(EINVAL);
        }
        *info = settings->platformInfo;
        return 0;
    });
}
