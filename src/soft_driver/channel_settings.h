// Reads the channels of a device from the configuration.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "soft_driver/settings.h"

namespace tiv::soft_driver {

// `list` is the value of a "channels" key that stands at `path`. Throws SettingsError.
[[nodiscard]] std::vector<ChannelSettings> ReadChannelSettings(const nlohmann::json& list,
                                                               const std::string& path);

}  // namespace tiv::soft_driver
