// From names and texts to fields.
#include "host/job_settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>

#include "host/quiet_libraries.h"
#include "host/setting_rules.h"

namespace tiv::host {

using analysis::rokt::message::ProfileParams;
using nlohmann::json;

namespace {

// The fields that come out of options, or that tell the device whose job it is.
struct OwnField {
    const char* name;
    const char* instead;
};

constexpr OwnField OWN_FIELDS[] = {
    {"job_id", "tivctl makes the job id"},
    {"result_dir", "write --output"},
    {"devices", "write --device"},
    {"zelnarBinPid", "it holds tivctl's process id"},
    {"isCancel", "it belongs to the end of a job"},
    {"hostProfiling", "every job of a device declines it"},
    {"sys_profiling", "write --cpu or --memory"},
    {"zelnar", "write --memory"},
    {"pid_profiling", "write --processes"},
    {"zelnar_llc_profiling", "write --llc"},
    {"cpu_sampling_interval", "write --interval"},
    {"sys_sampling_interval", "write --interval"},
    {"pid_sampling_interval", "write --interval"},
};

const char* InsteadOf(const std::string& name) {
    const auto* const own = std::find_if(std::begin(OWN_FIELDS), std::end(OWN_FIELDS),
                                         [&](const OwnField& field) { return name == field.name; });
    return own == std::end(OWN_FIELDS) ? nullptr : own->instead;
}

std::string OptionOf(const std::string& name) { return "--set " + name; }

bool HasNoPlaceInText(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < ' ' || byte == 0x7f || c == '"' || c == '\\';
}

std::optional<Refusal> SetNumber(const std::string& name, const std::string& value, json& field) {
    int32_t number = 0;
    const char* const end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, number);
    if (value.empty() || error != std::errc() || stop != end) {
        return Refusal{OptionOf(name), "a whole number of 32 bits",
                       fmt::format("--set {}={} is no whole number of 32 bits", name, value)};
    }
    field = number;
    return std::nullopt;
}

std::optional<Refusal> SetText(const std::string& name, const std::string& value, json& field) {
    if (std::any_of(value.begin(), value.end(), HasNoPlaceInText)) {
        return Refusal{OptionOf(name), "text without quotes, backslashes and control characters",
                       fmt::format("--set {}: quotes, backslashes and control characters have no "
                                   "place in the sample configuration",
                                   name)};
    }
    field = value;
    return std::nullopt;
}

std::optional<Refusal> SetField(const std::string& name, const std::string& value, json& record) {
    const char* const instead = InsteadOf(name);
    if (instead != nullptr) {
        return Refusal{OptionOf(name), instead,
                       fmt::format("--set {} is not for you to set: {}", name, instead)};
    }
    const auto found = record.find(name);
    if (found == record.end()) {
        return Refusal{OptionOf(name), "a field of the sample configuration",
                       fmt::format("--set {}: the sample configuration has no field of that name; "
                                   "see the manifest of a result for all of them",
                                   name)};
    }
    // Every field that is true or false is one of tivctl's own.
    return found->is_number() ? SetNumber(name, value, *found) : SetText(name, value, *found);
}

}  // namespace

std::vector<Refusal> ApplySettings(const std::vector<std::pair<std::string, std::string>>& settings,
                                   ProfileParams& params) {
    std::vector<Refusal> refusals;
    if (settings.empty()) {
        return refusals;
    }
    json record = json::parse(params.ToString());
    for (const auto& [name, value] : settings) {
        std::optional<Refusal> refusal = SetField(name, value, record);
        if (refusal.has_value()) {
            refusals.push_back(std::move(*refusal));
        }
    }
    if (!refusals.empty()) {
        return refusals;
    }
    if (!record["ai_core_metrics"].get<std::string>().empty()) {
        HearTheDriver();  // which chip this is decides
    }
    const QuietLibraries quiet;
    (void)params.FromString(record.dump(-1, ' ', false, json::error_handler_t::replace));
    for (const auto& [name, value] : settings) {
        const std::string allowed = BrokenRule(name, params);
        if (!allowed.empty()) {
            refusals.push_back(
                {OptionOf(name), allowed,
                 fmt::format("--set {}={} is not allowed: {}", name, value, allowed)});
        }
    }
    return refusals;
}

}  // namespace tiv::host
