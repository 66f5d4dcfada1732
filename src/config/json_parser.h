// The optional file that overrides switches, sizes and periods of reports and channels.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "common/json.h"
#include "common/singleton.h"

namespace Zelnarer::Parser {

struct ModuleConfig {
    int32_t moduleId = 0;
    bool profSwitch = true;
};

struct ReporterConfig {
    int32_t reporterId = 0;
    bool reporterSwitch = true;
    int32_t reportBufferLen = 0;  // bytes, 0: not overridden
};

struct ChannelConfig {
    int32_t channelId = 0;
    int32_t peroid = 0;             // spelled as in the file; ms, 0: not overridden
    int32_t channelBufferSize = 0;  // bytes of the reader's buffer, 0: not overridden
    int32_t driverBufferSize = 0;   // bytes of the driver's buffer, 0: not overridden
    int32_t threshold = 0;          // per cent, 0: not overridden
    bool profSwitch = true;
    bool reporterSwitch = true;
};

// Answers small questions about modules, reporters and channels. Every answer has a default, and
// the file only ever overrides: a bad entry is skipped or reads as its default, a bad file means no
// overrides, and without Init every answer is the default.
//
// Init runs once, before the readers; the maps are not locked and read only afterwards.
class JsonParser : public analysis::rokt::common::singleton::Singleton<JsonParser> {
 public:
    ~JsonParser() override;

    // Loads the file. A second call does nothing, also after a load that failed.
    void Init(const std::string& path);
    // Forgets the file; Init may load one again.
    void Uninit();

    // The switch of the module that a reporting caller belongs to; true when the file says nothing.
    // An id that no module has counts as the first module.
    [[nodiscard]] bool GetModuleSwitch(uint32_t reportModuleId) const;
    [[nodiscard]] bool GetReporterSwitch(int32_t reporterId) const;
    // Bytes; 0 when the file says nothing, as for all sizes and periods below.
    [[nodiscard]] uint32_t GetReportBufferLen(int32_t reporterId) const;
    [[nodiscard]] bool GetChannelReporterSwitch(uint32_t channelId) const;
    [[nodiscard]] bool GetChannelProfSwitch(uint32_t channelId) const;
    [[nodiscard]] uint32_t GetChannelBufferSize(uint32_t channelId) const;
    [[nodiscard]] uint32_t GetDriverBufferSize(uint32_t channelId) const;
    [[nodiscard]] uint32_t GetChannelPeriod(uint32_t channelId) const;
    [[nodiscard]] uint32_t GetChannelThreshold(uint32_t channelId) const;

 private:
    using JsonValue = analysis::rokt::common::json::JsonValue;

    void Load(const std::string& path);
    void ParseDocument(const JsonValue& document);
    void ParseReports(const JsonValue& reports);
    void ParseModule(const JsonValue& entry);
    void ParseReporter(const JsonValue& entry);
    void ParseChannel(const JsonValue& entry);
    [[nodiscard]] const ReporterConfig* FindReporter(int32_t reporterId) const;
    [[nodiscard]] const ChannelConfig* FindChannel(uint32_t channelId) const;

    bool isInited = false;
    std::map<int32_t, ChannelConfig> channelMap;
    std::map<int32_t, ModuleConfig> moduleMap;
    std::map<int32_t, ReporterConfig> reporterMap;
};

}  // namespace Zelnarer::Parser
