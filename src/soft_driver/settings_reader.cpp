// Typed access to one JSON object of the configuration.
#include "soft_driver/settings_reader.h"

#include <limits>
#include <utility>

namespace tiv::soft_driver {

SettingsReader::SettingsReader(const nlohmann::json& object, std::string path)
    : object_(object), path_(std::move(path)) {
    if (!object_.is_object()) {
        throw SettingsError(path_, "must be an object");
    }
}

const nlohmann::json* SettingsReader::Member(const char* key) {
    asked_.insert(key);
    const auto found = object_.find(key);
    return found == object_.end() ? nullptr : &*found;
}

uint64_t SettingsReader::Unsigned(const char* key, uint64_t fallback, uint64_t least,
                                  uint64_t most) {
    const nlohmann::json* value = Member(key);
    if (value == nullptr) {
        return fallback;
    }
    if (!value->is_number_unsigned() || value->get<uint64_t>() < least ||
        value->get<uint64_t>() > most) {
        throw SettingsError(PathOf(key), "must be a whole number from " + std::to_string(least) +
                                             " to " + std::to_string(most));
    }
    return value->get<uint64_t>();
}

bool SettingsReader::Bool(const char* key, bool fallback) {
    const nlohmann::json* value = Member(key);
    if (value == nullptr) {
        return fallback;
    }
    if (!value->is_boolean()) {
        throw SettingsError(PathOf(key), "must be true or false");
    }
    return value->get<bool>();
}

std::string SettingsReader::Text(const char* key, const std::string& fallback) {
    const nlohmann::json* value = Member(key);
    if (value == nullptr) {
        return fallback;
    }
    if (!value->is_string()) {
        throw SettingsError(PathOf(key), "must be a string");
    }
    return value->get<std::string>();
}

void SettingsReader::Finish() const {
    for (const auto& [key, value] : object_.items()) {
        if (asked_.count(key) == 0) {
            throw SettingsError(PathOf(key), "is no key of this object");
        }
    }
}

int64_t WholeNumber(const nlohmann::json& value, const std::string& path) {
    constexpr uint64_t most = std::numeric_limits<int64_t>::max();
    if (!value.is_number_integer() ||
        (value.is_number_unsigned() && value.get<uint64_t>() > most)) {
        throw SettingsError(path, "must be a whole number of 64 bits");
    }
    return value.get<int64_t>();
}

}  // namespace tiv::soft_driver
