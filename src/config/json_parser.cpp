// Loading the report configuration file, and the answers that follow from it.
#include "config/json_parser.h"

#include <exception>
#include <fstream>
#include <iterator>
#include <optional>

#include "platform/log.h"

namespace Zelnarer::Parser {

using analysis::rokt::common::json::Json;
using analysis::rokt::common::json::JsonValue;

namespace {

struct NamedId {
    const char* name;
    int32_t id;
};

constexpr NamedId MODULES[] = {
    {"DATA_PREPROCESS", 0}, {"VMCL", 1},    {"VCL", 2},
    {"FRAMEWORK", 3},       {"RUNTIME", 4}, {"ZELNAR", 5},
};

constexpr NamedId REPORTERS[] = {
    {"AGING.API", 0},       {"UNAGING.API", 1},      {"AGING.COMPACT", 2},
    {"UNAGING.COMPACT", 3}, {"AGING.ADDITIONAL", 4}, {"UNAGING.ADDITIONAL", 5},
};

struct ReportModule {
    uint32_t reportId;  // what a reporting caller holds
    int32_t moduleId;
};

constexpr ReportModule REPORT_MODULES[] = {{48, 2}, {45, 3}, {7, 4}, {3, 1}, {36, 0}};

constexpr int64_t MIN_CHANNEL_ID = 1;
constexpr int64_t MAX_CHANNEL_ID = 159;

struct Range {
    int64_t low;
    int64_t high;

    bool Holds(int64_t value) const { return value >= low && value <= high; }
};

constexpr Range REPORT_BUFFER_LEN = {8192, 32768};         // bytes
constexpr Range CHANNEL_PERIOD = {1, 1000};                // ms
constexpr Range CHANNEL_BUFFER_SIZE = {1048576, 4194304};  // bytes
constexpr Range CHANNEL_THRESHOLD = {10, 95};              // per cent

template <std::size_t N>
std::optional<int32_t> FindId(const NamedId (&table)[N], const std::string& name) {
    for (const NamedId& row : table) {
        if (name == row.name) {
            return row.id;
        }
    }
    return std::nullopt;
}

int32_t ModuleOfReport(uint32_t reportModuleId) {
    for (const ReportModule& row : REPORT_MODULES) {
        if (row.reportId == reportModuleId) {
            return row.moduleId;
        }
    }
    return 0;
}

// The member, or null when the entry lacks it; an entry that is no object is reported.
const JsonValue* FindMember(const JsonValue& entry, const char* key) {
    return entry.Contains(key) ? entry.Find(key) : nullptr;
}

std::string ReadText(const JsonValue& entry, const char* key) {
    const JsonValue* value = FindMember(entry, key);
    return value == nullptr ? "" : value->GetString();
}

// Nothing when the key is absent.
std::optional<int64_t> ReadNumber(const JsonValue& entry, const char* key) {
    const JsonValue* value = FindMember(entry, key);
    if (value == nullptr) {
        return std::nullopt;
    }
    return value->GetInt();
}

// Only "off" switches off; an absent key and any other text leave the switch on.
bool IsSwitchedOff(const JsonValue& entry, const char* key) {
    return ReadText(entry, key) == "off";
}

int32_t ReadPeriod(const JsonValue& entry, int32_t channelId) {
    const std::optional<int64_t> period = ReadNumber(entry, "peroid");
    if (period.has_value() && !CHANNEL_PERIOD.Holds(*period)) {
        TIV_LOGW("The peroid of Channel %d is out of range", channelId);
        return 0;
    }
    return static_cast<int32_t>(period.value_or(0));
}

int32_t ReadChannelBufferSize(const JsonValue& entry, int32_t channelId) {
    const std::optional<int64_t> size = ReadNumber(entry, "channel_buffer_size");
    if (size.has_value() && !CHANNEL_BUFFER_SIZE.Holds(*size)) {
        TIV_LOGW("The channel buffer size of Channel %d is out of range", channelId);
        return 0;
    }
    return static_cast<int32_t>(size.value_or(0));
}

// Only two channels are held to the range.
int32_t ReadThreshold(const JsonValue& entry, int32_t channelId) {
    const std::optional<int64_t> threshold = ReadNumber(entry, "threshold");
    const bool ranged = channelId == 45 || channelId == 48;
    if (threshold.has_value() && ranged && !CHANNEL_THRESHOLD.Holds(*threshold)) {
        TIV_LOGW("The threshold of Channel %d is out of range", channelId);
        return 0;
    }
    return static_cast<int32_t>(threshold.value_or(0));
}

uint32_t Positive(int32_t value) { return value > 0 ? static_cast<uint32_t>(value) : 0; }

}  // namespace

JsonParser::~JsonParser() { Uninit(); }

// Marked first: a load that failed is not tried again.
void JsonParser::Init(const std::string& path) {
    if (isInited) {
        return;
    }
    isInited = true;
    Load(path);
}

void JsonParser::Uninit() {
    channelMap.clear();
    moduleMap.clear();
    reporterMap.clear();
    isInited = false;
}

void JsonParser::Load(const std::string& path) {
    std::ifstream file(path);
    if (!file.is_open()) {
        TIV_LOGW("Json file path cannot open, path: %s", path.c_str());
        return;
    }
    try {
        const std::string text((std::istreambuf_iterator<char>(file)),
                               std::istreambuf_iterator<char>());
        ParseDocument(Json(text));
    } catch (const std::exception&) {
        TIV_LOGW("Json file config load fail, path:%s", path.c_str());
    }
}

void JsonParser::ParseDocument(const JsonValue& document) {
    if (const JsonValue* reports = FindMember(document, "sorb")) {
        ParseReports(*reports);
    }
    const JsonValue* device = FindMember(document, "device");
    const JsonValue* channels = device == nullptr ? nullptr : FindMember(*device, "channels");
    if (channels == nullptr) {
        return;
    }
    for (const JsonValue& entry : channels->GetArray()) {
        ParseChannel(entry);
    }
}

void JsonParser::ParseReports(const JsonValue& reports) {
    const JsonValue* modules = FindMember(reports, "modules");
    if (modules == nullptr) {
        return;
    }
    for (const JsonValue& entry : modules->GetArray()) {
        ParseModule(entry);
    }
    const JsonValue* reporters = FindMember(reports, "reporters");
    if (reporters == nullptr) {
        return;
    }
    for (const JsonValue& entry : reporters->GetArray()) {
        ParseReporter(entry);
    }
}

void JsonParser::ParseModule(const JsonValue& entry) {
    const std::optional<int32_t> id = FindId(MODULES, ReadText(entry, "module"));
    if (!id.has_value()) {
        TIV_LOGE("Module Id is invalid.");
        return;
    }
    ModuleConfig module;
    module.moduleId = *id;
    if (IsSwitchedOff(entry, "prof_switch")) {
        TIV_EVENT("Set module switch of module %d off", *id);
        module.profSwitch = false;
    }
    moduleMap.emplace(*id, module);
}

void JsonParser::ParseReporter(const JsonValue& entry) {
    const std::string name = ReadText(entry, "reporter");
    const std::optional<int32_t> id = FindId(REPORTERS, name);
    if (!id.has_value()) {
        TIV_LOGE("Reporter Id %s is invalid.", name.c_str());
        return;
    }
    ReporterConfig reporter;
    reporter.reporterId = *id;
    if (IsSwitchedOff(entry, "reporter_switch")) {
        TIV_EVENT("Set reporter switch of reporter %d off", *id);
        reporter.reporterSwitch = false;
    }
    const std::optional<int64_t> length = ReadNumber(entry, "report_buffer_len");
    if (length.has_value() && !REPORT_BUFFER_LEN.Holds(*length)) {
        TIV_LOGW("The reporter buffer len of Repoter %d is out of range", *id);
    } else {
        reporter.reportBufferLen = static_cast<int32_t>(length.value_or(0));
    }
    reporterMap.emplace(*id, reporter);
}

void JsonParser::ParseChannel(const JsonValue& entry) {
    const int64_t id = ReadNumber(entry, "channel").value_or(0);
    const int32_t channelId = static_cast<int32_t>(id);
    if (id < MIN_CHANNEL_ID || id > MAX_CHANNEL_ID) {
        TIV_LOGE("Channel Id %d is invalid.", channelId);
        return;
    }
    ChannelConfig channel;
    channel.channelId = channelId;
    channel.peroid = ReadPeriod(entry, channelId);
    channel.channelBufferSize = ReadChannelBufferSize(entry, channelId);
    channel.driverBufferSize =
        static_cast<int32_t>(ReadNumber(entry, "driver_buffer_size").value_or(0));
    channel.threshold = ReadThreshold(entry, channelId);
    if (IsSwitchedOff(entry, "prof_switch")) {
        TIV_EVENT("Set channel switch of channel %d off", channelId);
        channel.profSwitch = false;
    }
    if (IsSwitchedOff(entry, "reporter_switch")) {
        TIV_EVENT("Set reporter switch of channel %d off", channelId);
        channel.reporterSwitch = false;
    }
    channelMap.emplace(channelId, channel);
}

bool JsonParser::GetModuleSwitch(uint32_t reportModuleId) const {
    const auto it = moduleMap.find(ModuleOfReport(reportModuleId));
    return it == moduleMap.end() || it->second.profSwitch;
}

const ReporterConfig* JsonParser::FindReporter(int32_t reporterId) const {
    const auto it = reporterMap.find(reporterId);
    return it == reporterMap.end() ? nullptr : &it->second;
}

const ChannelConfig* JsonParser::FindChannel(uint32_t channelId) const {
    const auto it = channelMap.find(static_cast<int32_t>(channelId));
    return it == channelMap.end() ? nullptr : &it->second;
}

bool JsonParser::GetReporterSwitch(int32_t reporterId) const {
    const ReporterConfig* reporter = FindReporter(reporterId);
    return reporter == nullptr || reporter->reporterSwitch;
}

uint32_t JsonParser::GetReportBufferLen(int32_t reporterId) const {
    const ReporterConfig* reporter = FindReporter(reporterId);
    return reporter == nullptr ? 0 : Positive(reporter->reportBufferLen);
}

bool JsonParser::GetChannelReporterSwitch(uint32_t channelId) const {
    const ChannelConfig* channel = FindChannel(channelId);
    return channel == nullptr || channel->reporterSwitch;
}

bool JsonParser::GetChannelProfSwitch(uint32_t channelId) const {
    const ChannelConfig* channel = FindChannel(channelId);
    return channel == nullptr || channel->profSwitch;
}

uint32_t JsonParser::GetChannelBufferSize(uint32_t channelId) const {
    const ChannelConfig* channel = FindChannel(channelId);
    return channel == nullptr ? 0 : Positive(channel->channelBufferSize);
}

uint32_t JsonParser::GetDriverBufferSize(uint32_t channelId) const {
    const ChannelConfig* channel = FindChannel(channelId);
    return channel == nullptr ? 0 : Positive(channel->driverBufferSize);
}

uint32_t JsonParser::GetChannelPeriod(uint32_t channelId) const {
    const ChannelConfig* channel = FindChannel(channelId);
    return channel == nullptr ? 0 : Positive(channel->peroid);
}

uint32_t JsonParser::GetChannelThreshold(uint32_t channelId) const {
    const ChannelConfig* channel = FindChannel(channelId);
    return channel == nullptr ? 0 : Positive(channel->threshold);
}

}  // namespace Zelnarer::Parser
