// Reads the driver's configuration file.
#include "soft_driver/settings.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <set>

#include "soft_driver/channel_settings.h"
#include "soft_driver/file_descriptor.h"
#include "soft_driver/notices.h"
#include "soft_driver/settings_reader.h"

#include <fcntl.h>

namespace tiv::soft_driver {
namespace {

constexpr int MOST_DEPTH = 8;
constexpr size_t MOST_FILE_BYTES = 4194304;
constexpr uint64_t MOST_DEVICES = 4096;
constexpr uint32_t MOST_BUFFER = 1073741824;

// Stops the parser before a deep value exists: freeing one recurses.
nlohmann::json ParseShallow(const std::string& text) {
    const auto guard = [](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
        if (depth > MOST_DEPTH) {
            throw SettingsError("$", "is nested deeper than 8 levels");
        }
        return true;
    };
    return nlohmann::json::parse(text, guard);
}

// "<module>.<info>" in digits. The scan alone would take blanks and signs, too.
bool ReadQueryName(const std::string& name, unsigned* module, unsigned* info) {
    int end = 0;
    return name.find_first_not_of("0123456789.") == std::string::npos &&
           sscanf(name.c_str(), "%9u.%9u%n", module, info, &end) == 2 &&
           static_cast<size_t>(end) == name.size();
}

// Answers to device queries: {"2.3": 8} answers module 2, info 3.
void ReadInfo(SettingsReader& reader, DeviceSettings* device) {
    const nlohmann::json* info = reader.Member("info");
    if (info == nullptr) {
        return;
    }
    if (!info->is_object()) {
        throw SettingsError(reader.PathOf("info"), "must be an object");
    }
    for (const auto& [key, value] : info->items()) {
        const std::string at = reader.PathOf("info." + key);
        unsigned module = 0;
        unsigned number = 0;
        if (!ReadQueryName(key, &module, &number)) {
            throw SettingsError(at, "must be named <module>.<info>");
        }
        device->info[{static_cast<int32_t>(module), static_cast<int32_t>(number)}] =
            WholeNumber(value, at);
    }
}

// The keys that the file may give for all devices and again for one of them.
void ReadDeviceAnswers(SettingsReader& reader, DeviceSettings* device) {
    device->chipId = reader.Unsigned32("chip_id", device->chipId, 0, 255);
    device->chipVersion = reader.Unsigned32("chip_version", device->chipVersion, 0, 255);
    if (reader.Member("host_frequency_khz") != nullptr) {
        device->hostFrequencyKhz =
            static_cast<int64_t>(reader.Unsigned("host_frequency_khz", 0, 0, INT64_MAX));
    }
    if (reader.Member("device_frequency_khz") != nullptr) {
        device->deviceFrequencyKhz =
            static_cast<int64_t>(reader.Unsigned("device_frequency_khz", 0, 0, INT64_MAX));
    }
    ReadInfo(reader, device);
    const nlohmann::json* channels = reader.Member("channels");
    if (channels != nullptr) {
        device->channels = ReadChannelSettings(*channels, reader.PathOf("channels"));
    }
}

std::vector<DeviceSettings> CountedDevices(uint64_t count, const DeviceSettings& common) {
    std::vector<DeviceSettings> devices(count, common);
    for (size_t i = 0; i < devices.size(); ++i) {
        devices[i].logicalId = static_cast<uint32_t>(i);
        devices[i].physicalId = static_cast<uint32_t>(i);
    }
    return devices;
}

std::vector<DeviceSettings> ListedDevices(const nlohmann::json& list, const std::string& path,
                                          const DeviceSettings& common) {
    std::vector<DeviceSettings> devices;
    std::set<uint32_t> logicalIds;
    std::set<uint32_t> physicalIds;
    for (const nlohmann::json& value : list) {
        const auto index = static_cast<uint32_t>(devices.size());
        SettingsReader reader(value, path + "[" + std::to_string(index) + "]");
        DeviceSettings device = common;
        device.logicalId = reader.Unsigned32("logical_id", index, 0, INT32_MAX);
        device.physicalId = reader.Unsigned32("physical_id", device.logicalId, 0, INT32_MAX);
        ReadDeviceAnswers(reader, &device);
        reader.Finish();
        if (!logicalIds.insert(device.logicalId).second) {
            throw SettingsError(reader.PathOf("logical_id"), "is used twice");
        }
        if (!physicalIds.insert(device.physicalId).second) {
            throw SettingsError(reader.PathOf("physical_id"), "is used twice");
        }
        devices.push_back(std::move(device));
    }
    return devices;
}

// A number of devices, or a list that tells each.
std::vector<DeviceSettings> ReadDevices(SettingsReader& reader, const DeviceSettings& common) {
    const nlohmann::json* value = reader.Member("devices");
    if (value == nullptr) {
        return CountedDevices(1, common);
    }
    if (value->is_array() && value->size() <= MOST_DEVICES) {
        return ListedDevices(*value, reader.PathOf("devices"), common);
    }
    if (value->is_number_unsigned() && value->get<uint64_t>() <= MOST_DEVICES) {
        return CountedDevices(value->get<uint64_t>(), common);
    }
    throw SettingsError(reader.PathOf("devices"),
                        "must be a number from 0 to 4096 or a list of at most 4096 devices");
}

void ReadLink(SettingsReader& reader, Settings* settings) {
    settings->segmentBytes = reader.Unsigned32("segment_bytes", 524288, 1024, 524288);
    settings->stallLimitMs = reader.Unsigned32("stall_limit_ms", 30000, 1, INT32_MAX);
    settings->sendBufferBytes =
        reader.Unsigned32("send_buffer_bytes", settings->sendBufferBytes, 4096, MOST_BUFFER);
    settings->receiveBufferBytes =
        reader.Unsigned32("receive_buffer_bytes", settings->receiveBufferBytes, 4096, MOST_BUFFER);
    if (reader.Member("virtual_function_id") != nullptr) {
        settings->virtualFunctionId =
            static_cast<int32_t>(reader.Unsigned("virtual_function_id", 0, 0, INT32_MAX));
    }
}

Settings ReadSettings(const nlohmann::json& root) {
    SettingsReader reader(root, "$");
    Settings settings;
    DeviceSettings common;
    ReadDeviceAnswers(reader, &common);
    settings.devices = ReadDevices(reader, common);
    settings.platformInfo = reader.Unsigned32("platform_info", 0, 0, 1);
    settings.apiVersion =
        static_cast<int32_t>(reader.Unsigned("api_version", 465157, 0, INT32_MAX));
    settings.resourceManagerReady = reader.Bool("resource_manager_ready", true);
    ReadLink(reader, &settings);
    reader.Finish();
    return settings;
}

// False with errno set when the file cannot be read whole.
bool ReadFile(const char* path, std::string* text) {
    const FileDescriptor file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen()) {
        return false;
    }
    std::array<char, 4096> block{};
    for (;;) {
        const ssize_t count = read(file.Get(), block.data(), block.size());
        if (count == 0) {
            return true;
        }
        if (count < 0) {
            return false;
        }
        text->append(block.data(), static_cast<size_t>(count));
        if (text->size() > MOST_FILE_BYTES) {
            errno = EFBIG;
            return false;
        }
    }
}

// What the first call of this process found; stays for its life.
struct Loaded {
    Settings settings;
    bool usable = true;

    Loaded() {
        const char* path = getenv("TIV_DRIVER_CONFIG");
        if (path == nullptr || *path == '\0') {
            return;
        }
        std::string text;
        std::string error;
        if (!ReadFile(path, &text)) {
            error = ErrorText(errno);
        } else if (ParseSettings(text, &settings, &error)) {
            return;
        }
        usable = false;
        Warn("driver configuration cannot be used: file=%s: %s", path, error.c_str());
    }
};

}  // namespace

const DeviceSettings* Settings::FindDevice(uint32_t logicalId) const {
    const auto found = std::find_if(
        devices.begin(), devices.end(),
        [logicalId](const DeviceSettings& device) { return device.logicalId == logicalId; });
    return found == devices.end() ? nullptr : &*found;
}

bool ParseSettings(const std::string& text, Settings* settings, std::string* error) {
    try {
        *settings = ReadSettings(ParseShallow(text));
        return true;
    } catch (const std::exception& failure) {
        *error = failure.what();
        return false;
    }
}

const Settings* ProcessSettings() {
    // Never destroyed: a detached thread may ask while the process ends.
    static const Loaded& loaded = *new Loaded();
    if (!loaded.usable) {
        errno = EINVAL;
        return nullptr;
    }
    return &loaded.settings;
}

}  // namespace tiv::soft_driver
