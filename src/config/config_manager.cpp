// Reading the chip, and the tables of frequencies and directories.
#include "config/config_manager.h"

#include <cstdlib>

#include "message/prof_params.h"
#include "platform/driver_api.h"
#include "platform/log.h"

namespace Analysis::Rokt::Common::Config {

namespace {

constexpr const char* TYPE_KEY = "type";
constexpr const char* FREQUENCY_KEY = "frq";
constexpr const char* AI_CORE_FREQUENCY_KEY = "aicFrq";
constexpr const char* INOTIFY_DIR = "/var/log/npu/profiling/";

// Where the driver tells chip and version of a device.
constexpr int32_t SYSTEM_MODULE = 0;
constexpr int32_t CHIP_INFO = 1;

struct FrequencyRow {
    uint32_t type;
    const char* frequency;        // MHz
    const char* aiCoreFrequency;  // MHz
};

constexpr FrequencyRow FREQUENCIES[] = {
    {0, "19.2", "680"}, {1, "100", "800"}, {2, "38.4", "960"}, {4, "38.4", "1150"},
    {5, "50", "800"},   {7, "48", "1250"}, {10, "48", "1250"},
};

uint32_t ClassifyChip(uint64_t value) {
    const uint32_t chipId = static_cast<uint32_t>(value >> 8) & 0xFFU;
    const uint32_t version = static_cast<uint32_t>(value) & 0xFFU;
    if (chipId == 2 && version == 5) {
        return 10;
    }
    return chipId == 8 ? 7 : chipId;
}

}  // namespace

ConfigManager::ConfigManager() { Init(); }

ConfigManager::~ConfigManager() { Uninit(); }

void ConfigManager::Init() {
    if (isInited) {
        TIV_LOGD("ConfigManager has been inited");
        return;
    }
    int64_t value = 0;
    const int32_t ret = halGetDeviceInfo(0, SYSTEM_MODULE, CHIP_INFO, &value);
    uint32_t type = static_cast<uint32_t>(PlatformType::HELPER_DEVICE_TYPE);
    if (ret == DRV_NOT_SUPPORTED) {
        TIV_LOGW(
            "Driver doesn't support device type version by halGetDeviceInfo interface, ret=%d, set "
            "PlatformType::HELPER_DEVICE_TYPE",
            ret);
    } else if (ret != 0) {
        TIV_LOGE("halGetDeviceInfo get device type version failed , ret:%d", ret);
        return;
    } else {
        type = ClassifyChip(static_cast<uint64_t>(value));
    }
    TIV_LOGD("halGetDeviceInfo get chip id : %u", type);
    StoreType(type);
    isInited = true;
}

void ConfigManager::StoreType(uint32_t type) {
    configMap[TYPE_KEY] = std::to_string(type);
    configMap[FREQUENCY_KEY].clear();
    configMap[AI_CORE_FREQUENCY_KEY].clear();
    for (const FrequencyRow& row : FREQUENCIES) {
        if (row.type == type) {
            configMap[FREQUENCY_KEY] = row.frequency;
            configMap[AI_CORE_FREQUENCY_KEY] = row.aiCoreFrequency;
        }
    }
}

void ConfigManager::Uninit() { isInited = false; }

std::string ConfigManager::Lookup(const char* key, const char* absent) const {
    const auto it = configMap.find(key);
    return it == configMap.end() ? absent : it->second;
}

uint32_t ConfigManager::GetPlatformType() const {
    return static_cast<uint32_t>(std::strtoul(Lookup(TYPE_KEY, "0").c_str(), nullptr, 10));
}

std::string ConfigManager::GetChipIdStr() const { return Lookup(TYPE_KEY, "0"); }

std::string ConfigManager::GetFrequency() const { return Lookup(FREQUENCY_KEY, ""); }

std::string ConfigManager::GetAiCoreFrequency() const { return Lookup(AI_CORE_FREQUENCY_KEY, ""); }

bool ConfigManager::IsDriverSupportLlc() const {
    switch (GetPlatformType()) {
        case 1:
        case 2:
        case 4:
        case 5:
        case 7:
        case 10:
            return true;
        default:
            return false;
    }
}

std::string ConfigManager::GetPerfDataDir(uint32_t devId) const {
    return INOTIFY_DIR + std::to_string(devId);
}

std::string ConfigManager::GetInotifyDir() const { return INOTIFY_DIR; }

void ConfigManager::HandleL2CacheParams(
    const std::shared_ptr<analysis::rokt::message::ProfileParams>& params) const {
    if (params == nullptr || params->l2CacheTaskProfiling != "on") {
        return;
    }
    if (GetL2CacheEvents(params->l2CacheTaskProfilingEvents) != 0) {
        params->l2CacheTaskProfiling = "off";
        TIV_LOGW("The platform is invalid for l2 cache, l2 cache data will not be collected");
    }
}

}  // namespace Analysis::Rokt::Common::Config
