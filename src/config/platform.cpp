// The run side, the driver's frequencies and the platform's override.
#include "config/platform.h"

#include "common/utils.h"
#include "config/config_manager.h"
#include "config/feature_table.h"
#include "config/platform_interface.h"
#include "driver/ai_drv_dev_api.h"
#include "platform/log.h"

namespace Analysis::Rokt::Common::Platform {

namespace driver = analysis::rokt::driver;
using Config::ConfigManager;

int Platform::InitRunSide() {
    if (driver::DrvGetPlatformInfo(&platformInfo) != 0) {
        TIV_LOGE("get platform info failed.");
        return -1;
    }
    runSide = platformInfo;
    TIV_LOGI("Set runSide: %d", static_cast<int>(runSide));
    return 0;
}

int Platform::Init() {
    TIV_EVENT("Profiling platform version: %s.", "1.0");
    if (driver::DrvGetApiVersion() > driver::DRV_FREQ_API_VERSION) {
        hostFreqSupported = driver::DrvGetHostFreq(hostFreq);
    }
    platformInterface = ::Rokt::Collect::Platform::PlatformRegistry::Instance().Create(
        ConfigManager::Instance().GetPlatformType());
    return 0;
}

bool Platform::IsDeviceSide() const { return runSide == 0; }

bool Platform::IsInfoDevice() const { return platformInfo == 0; }

bool Platform::IsInfoHost() const { return platformInfo == 1; }

uint32_t Platform::GetPlatformInfo() const { return platformInfo; }

void Platform::SetHelperHostSide() {
    TIV_EVENT("Set platform helper host side");
    isHelperHostSide = true;
}

void Platform::SetRpcHelper() {
    TIV_EVENT("Running on rpc helper");
    isRpcHelper = true;
}

bool Platform::IsHelperHostSide() const { return isHelperHostSide; }

bool Platform::IsRpcHelper() const { return isRpcHelper; }

bool Platform::RunInHelper() const { return driver::IsInHelper(); }

bool Platform::IsHostFreqSupported() const { return hostFreqSupported; }

std::string Platform::GetHostFreq() const { return hostFreq; }

std::string Platform::GetDeviceFreq(uint32_t devId, const std::string& fallback) const {
    std::string frequency;
    if (driver::DrvGetApiVersion() > driver::DRV_FREQ_API_VERSION &&
        driver::DrvGetDeviceFreq(devId, frequency)) {
        return frequency;
    }
    return fallback;
}

uint64_t Platform::GetTimeStamp() const {
#ifdef __aarch64__
    if (hostFreqSupported) {
        uint64_t count = 0;
        asm volatile("mrs %0, cntvct_el0" : "=r"(count));
        return count;
    }
#endif
    return analysis::rokt::common::utils::Utils::GetClockMonotonicRaw();
}

void Platform::GetMetricsEvents(const std::string& name, std::string& events) const {
    if (platformInterface == nullptr) {
        ConfigManager::Instance().GetMetricsEvents(name, events);
        return;
    }
    static_cast<void>(platformInterface->GetMetricsEvents(name, events));
}

bool Platform::FeatureIsSupported(uint32_t feature) const {
    return platformInterface == nullptr || platformInterface->FeatureIsSupport(feature);
}

bool Platform::FeatureIsSupported(const std::string& name) const {
    if (platformInterface == nullptr) {
        return true;
    }
    uint32_t feature = 0;
    return ::Rokt::Collect::Platform::FeatureOfName(name, feature) &&
           platformInterface->FeatureIsSupport(feature);
}

}  // namespace Analysis::Rokt::Common::Platform
