// Questions to the driver about its devices.
#include "driver/ai_drv_dev_api.h"

#include <algorithm>
#include <array>

#include "config/config_manager.h"
#include "platform/driver_api.h"
#include "platform/log.h"

namespace analysis::rokt::driver {
namespace {

using Analysis::Rokt::Common::Config::ConfigManager;

// Numbers of halGetDeviceInfo.
enum DeviceModule {
    MODULE_SYSTEM = 0,
    MODULE_AI_CPU = 1,
    MODULE_CTRL_CPU = 2,
    MODULE_AI_CORE = 4,
    MODULE_TS_CPU = 5,
    MODULE_VECTOR_CORE = 7
};
enum DeviceInfo {
    INFO_ENV = 0,
    INFO_CORE_NUM = 3,
    INFO_OCCUPY = 8,
    INFO_ID = 9,
    INFO_ENDIAN = 11,
    INFO_DEVICE_TIME = 13,
    INFO_HOST_FREQ = 24,
    INFO_DEVICE_FREQ = 25
};

// Platform types whose chips have no AI vector cores.
constexpr std::array<uint32_t, 3> TYPES_WITHOUT_VECTOR_CORES = {0, 1, 4};

int QueryDevice(const char* operation, uint32_t deviceId, DeviceModule module, DeviceInfo info,
                int64_t* value) {
    const int32_t ret = halGetDeviceInfo(deviceId, module, info, value);
    if (ret == 0) {
        TIV_LOGI("Succeeded to %s, deviceId=%u", operation, deviceId);
        return 0;
    }
    if (ret == DRV_NOT_SUPPORTED) {
        TIV_LOGW("Driver doesn't support %s by halGetDeviceInfo interface, deviceId=%u, ret=%d",
                 operation, deviceId, ret);
        return 0;
    }
    TIV_LOGE("Failed to %s, deviceId=%u, ret=%d", operation, deviceId, ret);
    return -1;
}

// The driver counts in kHz; the rounding of the single precision belongs to the text.
std::string MegaHertzText(int64_t kiloHertz) {
    return std::to_string(static_cast<float>(kiloHertz) / 1000.0F);
}

// True with the text in `out` when the driver tells a frequency of at least 1 kHz.
bool QueryFrequency(const char* operation, uint32_t deviceId, DeviceInfo info, std::string& out) {
    int64_t frequency = 0;
    const int32_t ret = halGetDeviceInfo(deviceId, MODULE_SYSTEM, info, &frequency);
    if (ret != 0 || frequency < 1) {
        TIV_LOGW("Driver doesn't support %s by halGetDeviceInfo interface, ret=%d", operation, ret);
        return false;
    }
    TIV_LOGI("Succeeded to %s frequency=%lld", operation, static_cast<long long>(frequency));
    out = MegaHertzText(frequency);
    return true;
}

bool HasVectorCores() {
    const uint32_t type = ConfigManager::Instance().GetPlatformType();
    return std::find(TYPES_WITHOUT_VECTOR_CORES.begin(), TYPES_WITHOUT_VECTOR_CORES.end(), type) ==
           TYPES_WITHOUT_VECTOR_CORES.end();
}

}  // namespace

int DrvGetDevNum() {
    uint32_t count = 0;
    const int32_t ret = drvGetDevNum(&count);
    if (ret != 0 || count > DRV_DEVICE_NUM_MAX) {
        TIV_LOGE("Failed to drvGetDevNum, ret=%d, num=%u", ret, count);
        return -1;
    }
    TIV_LOGI("Succeeded to drvGetDevNum, numDev=%u", count);
    return static_cast<int>(count);
}

int DrvGetDevIds(int num, std::vector<int>& ids) {
    ids.clear();
    if (num < 1 || num > static_cast<int>(DRV_DEVICE_NUM_MAX)) {
        return -1;
    }
    std::array<uint32_t, DRV_DEVICE_NUM_MAX> found{};
    const int32_t ret = drvGetDevIDs(found.data(), static_cast<uint32_t>(num));
    if (ret != 0) {
        TIV_LOGE("Failed to drvGetDevIDs, ret=%d", ret);
        return -1;
    }
    TIV_LOGI("Succeeded to drvGetDevIDs, numDevices=%d", num);
    for (size_t i = 0; i < static_cast<size_t>(num); ++i) {
        ids.push_back(static_cast<int>(found[i]));
    }
    return 0;
}

int DrvGetPlatformInfo(uint32_t* info) {
    const int32_t ret = drvGetPlatformInfo(info);
    if (ret != 0 && ret != DRV_NOT_SUPPORTED) {
        TIV_LOGE("Failed to drvGetPlatformInfo, ret=%d", ret);
        return -1;
    }
    return 0;
}

int DrvGetEnvType(uint32_t deviceId, int64_t* value) {
    return QueryDevice("DrvGetEnvType", deviceId, MODULE_SYSTEM, INFO_ENV, value);
}

int DrvGetCtrlCpuId(uint32_t deviceId, int64_t* value) {
    return QueryDevice("DrvGetCtrlCpuId", deviceId, MODULE_CTRL_CPU, INFO_ID, value);
}

int DrvGetCtrlCpuCoreNum(uint32_t deviceId, int64_t* value) {
    return QueryDevice("DrvGetCtrlCpuCoreNum", deviceId, MODULE_CTRL_CPU, INFO_CORE_NUM, value);
}

int DrvGetCtrlCpuEndianLittle(uint32_t deviceId, int64_t* value) {
    return QueryDevice("DrvGetCtrlCpuEndianLittle", deviceId, MODULE_CTRL_CPU, INFO_ENDIAN, value);
}

int DrvGetAiCpuCoreNum(uint32_t deviceId, int64_t* value) {
    return QueryDevice("DrvGetAiCpuCoreNum", deviceId, MODULE_AI_CPU, INFO_CORE_NUM, value);
}

int DrvGetAiCpuCoreId(uint32_t deviceId, int64_t* value) {
    return QueryDevice("DrvGetAiCpuCoreId", deviceId, MODULE_AI_CPU, INFO_ID, value);
}

int DrvGetAiCpuOccupyBitmap(uint32_t deviceId, int64_t* value) {
    return QueryDevice("DrvGetAiCpuOccupyBitmap", deviceId, MODULE_AI_CPU, INFO_OCCUPY, value);
}

int DrvGetTsCpuCoreNum(uint32_t deviceId, int64_t* value) {
    return QueryDevice("DrvGetTsCpuCoreNum", deviceId, MODULE_TS_CPU, INFO_CORE_NUM, value);
}

int DrvGetAiCoreId(uint32_t deviceId, int64_t* value) {
    return QueryDevice("DrvGetAiCoreId", deviceId, MODULE_AI_CORE, INFO_ID, value);
}

int DrvGetAiCoreNum(uint32_t deviceId, int64_t* value) {
    return QueryDevice("DrvGetAiCoreNum", deviceId, MODULE_AI_CORE, INFO_CORE_NUM, value);
}

int DrvGetAivNum(uint32_t deviceId, int64_t* value) {
    if (!HasVectorCores()) {
        *value = 0;
        TIV_LOGI("Driver doesn't support DrvGetAivNum by halGetDeviceInfo interface");
        return 0;
    }
    const int32_t ret = halGetDeviceInfo(deviceId, MODULE_VECTOR_CORE, INFO_CORE_NUM, value);
    if (ret == 0) {
        TIV_LOGI("Succeeded to DrvGetAivNum, deviceId=%u, aivNum=%lld", deviceId,
                 static_cast<long long>(*value));
        return 0;
    }
    if (ret == DRV_NOT_SUPPORTED) {
        TIV_LOGW(
            "Driver doesn't support DrvGetAivNum by halGetDeviceInfo interface, deviceId=%u, "
            "ret=%d",
            deviceId, ret);
        return 0;
    }
    TIV_LOGE("Failed to DrvGetAivNum, deviceId=%u, ret=%d", deviceId, ret);
    return -1;
}

int DrvGetDeviceTime(uint32_t deviceId, int64_t* counterOne, int64_t* counter) {
    *counterOne = 0;
    const int32_t ret = halGetDeviceInfo(deviceId, MODULE_SYSTEM, INFO_DEVICE_TIME, counter);
    if (ret == 0) {
        TIV_LOGI("Succeeded to DrvGetDeviceTime cntvct, devId=%u, cntvct=%lu", deviceId,
                 static_cast<unsigned long>(*counter));
        return 0;
    }
    if (ret == DRV_NOT_SUPPORTED) {
        TIV_LOGW(
            "Driver doesn't support DrvGetDeviceTime cntvct by halGetDeviceInfo interface, "
            "deviceId=%u, ret=%d",
            deviceId, ret);
        return 0;
    }
    TIV_LOGE("Failed to DrvGetDeviceTime cntvct, deviceId=%u, ret=%d", deviceId, ret);
    return -1;
}

bool DrvGetHostFreq(std::string& out) {
    // The host's clock is no property of a device: every driver answers for device 0.
    if (QueryFrequency("DrvGetHostFreq", 0, INFO_HOST_FREQ, out)) {
        return true;
    }
    out.clear();
    return false;
}

bool DrvGetDeviceFreq(uint32_t deviceId, std::string& out) {
    return QueryFrequency("DrvGetDeviceFreq", deviceId, INFO_DEVICE_FREQ, out);
}

int DrvGetApiVersion() {
    int32_t version = 0;
    if (halGetAPIVersion(&version) != 0) {
        return 0;
    }
    TIV_EVENT("Succeeded to DrvGetApiVersion version: 0x%x", static_cast<unsigned>(version));
    return version;
}

std::string GetDevIdsStr() {
    std::vector<int> ids;
    if (DrvGetDevIds(DrvGetDevNum(), ids) != 0) {
        return "";
    }
    std::string text;
    for (const int id : ids) {
        text += std::to_string(id) + ",";
    }
    text.pop_back();
    return text;
}

bool IsInHelper() {
    uint32_t count = 0;
    if (drvGetDevNum(&count) != DRV_NOT_SUPPORTED) {
        return false;
    }
    TIV_LOGI("Zelnar work in Helper.");
    return true;
}

}  // namespace analysis::rokt::driver
