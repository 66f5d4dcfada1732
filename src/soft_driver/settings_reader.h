// Typed access to one JSON object of the configuration, with the path of every complaint.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>

namespace tiv::soft_driver {

// What is wrong and where; never leaves ParseSettings.
class SettingsError : public std::runtime_error {
 public:
    SettingsError(const std::string& path, const std::string& reason)
        : std::runtime_error(path + ": " + reason) {}
};

// Reads the members of one object. A getter whose key is absent gives the default; a member of the
// wrong kind or out of range throws. Finish throws for a key that no getter asked for, so that a
// misspelt key is an error and not a silence.
class SettingsReader {
 public:
    SettingsReader(const nlohmann::json& object, std::string path);

    [[nodiscard]] uint64_t Unsigned(const char* key, uint64_t fallback, uint64_t least,
                                    uint64_t most);
    [[nodiscard]] uint32_t Unsigned32(const char* key, uint32_t fallback, uint32_t least,
                                      uint32_t most) {
        return static_cast<uint32_t>(Unsigned(key, fallback, least, most));
    }
    [[nodiscard]] bool Bool(const char* key, bool fallback);
    [[nodiscard]] std::string Text(const char* key, const std::string& fallback);
    // Null when the key is absent.
    [[nodiscard]] const nlohmann::json* Member(const char* key);
    [[nodiscard]] std::string PathOf(const std::string& key) const { return path_ + "." + key; }
    [[nodiscard]] const std::string& Path() const { return path_; }
    void Finish() const;

 private:
    const nlohmann::json& object_;
    const std::string path_;
    std::set<std::string> asked_;
};

// The value as a whole number of 64 bits; throws with the path otherwise.
[[nodiscard]] int64_t WholeNumber(const nlohmann::json& value, const std::string& path);

}  // namespace tiv::soft_driver
