// On which side the process runs, and what its platform overrides.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "common/singleton.h"

namespace Rokt::Collect::Platform {
class PlatformInterface;
}  // namespace Rokt::Collect::Platform

namespace Analysis::Rokt::Common::Platform {

// The run side of the process, the frequencies that the driver knows, and the optional override of
// metrics and features.
//
// Until InitRunSide the run side is 2, which is neither device nor host: everything that runs on
// the device only declines. The setters run at start, before any reader; afterwards read only, from
// any thread.
class Platform : public analysis::rokt::common::singleton::Singleton<Platform> {
 public:
    // Asks the driver for the side. 0, or -1 when the driver failed. The side stays what it was
    // then, and also, with 0, when the driver does not know the question.
    [[nodiscard]] int InitRunSide();
    // Reads the host frequency where the driver knows it and takes the override that is registered
    // for the platform type. Always 0.
    int Init();

    [[nodiscard]] bool IsDeviceSide() const;
    [[nodiscard]] bool IsInfoDevice() const;
    [[nodiscard]] bool IsInfoHost() const;
    [[nodiscard]] uint32_t GetPlatformInfo() const;

    void SetHelperHostSide();
    void SetRpcHelper();
    [[nodiscard]] bool IsHelperHostSide() const;
    [[nodiscard]] bool IsRpcHelper() const;
    // True when no device driver stands behind the driver library. Asks it each time.
    [[nodiscard]] bool RunInHelper() const;

    [[nodiscard]] bool IsHostFreqSupported() const;
    // MHz as text; empty when not supported.
    [[nodiscard]] std::string GetHostFreq() const;
    // MHz as text from the driver, or `fallback` when it is too old or fails.
    [[nodiscard]] std::string GetDeviceFreq(uint32_t devId, const std::string& fallback) const;
    // The raw counter of the processor where its frequency is known, else the raw monotonic clock
    // in ns.
    [[nodiscard]] uint64_t GetTimeStamp() const;

    // From the override when there is one, else from ConfigManager; `events` is left alone when the
    // name has no list.
    void GetMetricsEvents(const std::string& name, std::string& events) const;
    // True without an override, for any feature, known or not.
    [[nodiscard]] bool FeatureIsSupported(uint32_t feature) const;
    [[nodiscard]] bool FeatureIsSupported(const std::string& name) const;

 private:
    uint32_t platformInfo = 2;
    uint32_t runSide = 2;
    bool hostFreqSupported = false;
    std::string hostFreq;
    std::shared_ptr<::Rokt::Collect::Platform::PlatformInterface> platformInterface;
    bool isHelperHostSide = false;
    bool isRpcHelper = false;
};

}  // namespace Analysis::Rokt::Common::Platform
