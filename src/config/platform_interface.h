// What a platform may answer in place of the common tables, and the registry of such platforms.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "common/singleton.h"
#include "platform/mutex.h"

namespace Rokt::Collect::Platform {

// The event lists of the metrics and the features of one platform. The base class knows the common
// lists and supports no feature: a platform derives from it, fills supportedFeatures and overrides
// the lists in which it differs.
//
// Its lists are not all those of ConfigManager: a stall cycle list and a scalar ratio list exist
// only where a platform brings its own. Constant after construction; any thread.
class PlatformInterface {
 public:
    virtual ~PlatformInterface() = default;

    // Free for a platform's own use.
    [[nodiscard]] virtual std::string GetEvents0();
    [[nodiscard]] virtual std::string GetEvents1();
    [[nodiscard]] virtual std::string GetEvents2();

    // The event list of a metrics name: 0, or -1 with `events` left alone when the name is unknown
    // or its feature is not supported.
    virtual int GetMetricsEvents(const std::string& name, std::string& events);
    [[nodiscard]] virtual bool FeatureIsSupport(uint32_t feature);
    [[nodiscard]] virtual std::string GetL2CacheEvents();
    // The list of a metrics number; empty, with an error, for a number that is no metrics.
    [[nodiscard]] virtual std::string GetMetricsEventsByType(uint32_t type);

    [[nodiscard]] virtual std::string GetArithmeticUtilization();
    [[nodiscard]] virtual std::string GetPipeUtilization();
    [[nodiscard]] virtual std::string GetPipeUtilizationExct();
    [[nodiscard]] virtual std::string GetPipelineExecuteUtilization();
    [[nodiscard]] virtual std::string GetPipeStallCycle();
    [[nodiscard]] virtual std::string GetResourceConflictRatio();
    [[nodiscard]] virtual std::string GetMemory();
    [[nodiscard]] virtual std::string GetMemoryL0();
    [[nodiscard]] virtual std::string GetMemoryUB();
    [[nodiscard]] virtual std::string GetL2Cache();
    [[nodiscard]] virtual std::string GetScalarRatio();

    // The number of a metrics name, 0 when unknown.
    [[nodiscard]] virtual uint32_t GetMetricsType(const std::string& name);

 protected:
    std::set<uint32_t> supportedFeatures;
};

// The overrides by platform type. Empty at start; whoever brings a platform registers it before
// the platform is looked up. Any thread.
class PlatformRegistry : public analysis::rokt::common::singleton::Singleton<PlatformRegistry> {
 public:
    using Factory = std::function<std::shared_ptr<PlatformInterface>()>;

    // A second factory of one type replaces the first.
    void Register(uint32_t platformType, Factory factory);

    // A new override for the type, or null when none is registered.
    [[nodiscard]] std::shared_ptr<PlatformInterface> Create(uint32_t platformType);

 private:
    tiv::Mutex mutex_;
    std::map<uint32_t, Factory> factories_ GUARDED_BY(mutex_);
};

}  // namespace Rokt::Collect::Platform
