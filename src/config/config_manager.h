// What kind of chip this is, and the tables that follow from it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "common/singleton.h"

namespace analysis::rokt::message {
struct ProfileParams;
}  // namespace analysis::rokt::message

namespace Analysis::Rokt::Common::Config {

// The platform types that the code tells apart by name; the others are only numbers.
enum class PlatformType : uint32_t {
    HELPER_DEVICE_TYPE = 2,  // also what a driver too old to answer is taken for
};

// Asks the driver once for chip and version, classifies them into a platform type, and answers from
// constant tables: frequencies, metrics events, L2 cache events, directories.
//
// The chip is read in the constructor and never again: when that read fails, the type is 0 and the
// frequencies are empty for the rest of the process. Read only afterwards; any thread.
class ConfigManager : public analysis::rokt::common::singleton::Singleton<ConfigManager> {
 public:
    ConfigManager();
    ~ConfigManager() override;

    void Init();
    void Uninit();

    // 0 when the chip could not be read.
    [[nodiscard]] uint32_t GetPlatformType() const;
    // The platform type as text, "0" when the chip could not be read.
    [[nodiscard]] std::string GetChipIdStr() const;
    // MHz as text; empty for a type without a row.
    [[nodiscard]] std::string GetFrequency() const;
    [[nodiscard]] std::string GetAiCoreFrequency() const;
    [[nodiscard]] bool IsDriverSupportLlc() const;

    // Where a job of this device keeps its working files; no slash at the end.
    [[nodiscard]] std::string GetPerfDataDir(uint32_t devId) const;
    // The directory above all of them, with a slash at the end.
    [[nodiscard]] std::string GetInotifyDir() const;

    // Adds the metrics names that this platform lacks.
    void GetUnsupportedMetrics(std::set<std::string>& unsupported) const;
    // True for an empty name and for every name of the metrics table, whatever the platform.
    [[nodiscard]] bool CheckMetricsValid(const std::string& name) const;
    // The event list of a metrics name. `events` is left alone when the name is empty, longer than
    // 70 characters, not for this platform, or unknown; all but the first with an error.
    void GetMetricsEvents(const std::string& name, std::string& events) const;
    // "metrics type should be in [...]" with every name of the table, for whoever answers a user.
    [[nodiscard]] static std::string GetMetricsHint();
    // On type 5 "PipeUtilization" means its extended form.
    void AdjustPipeUtilization(std::string& name) const;

    // The events of the L2 cache set of this platform: 0, or -1 for a platform that has none.
    [[nodiscard]] int GetL2CacheEvents(std::string& events) const;
    // Fills the L2 cache events of a job that asked for them, or switches them off on a platform
    // that has none.
    void HandleL2CacheParams(
        const std::shared_ptr<analysis::rokt::message::ProfileParams>& params) const;

 private:
    void StoreType(uint32_t type);
    [[nodiscard]] std::string Lookup(const char* key, const char* absent) const;

    bool isInited = false;
    std::map<std::string, std::string> configMap;  // "type", "frq", "aicFrq"
};

}  // namespace Analysis::Rokt::Common::Config
