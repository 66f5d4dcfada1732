// Looking a result directory over.
#include "host/result/result_directory.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>
#include <tuple>
#include <utility>

#include "host/chunk_times.h"
#include "host/result/manifest_reader.h"
#include "host/result/number_text.h"
#include "host/result/utf8_text.h"

namespace tiv::host {

namespace {

namespace fs = std::filesystem;

constexpr int MAX_DIRECTORY_DEPTH = 4;
constexpr std::string_view DEVICE_PREFIX = "device_";

struct NamedKind {
    std::string_view name;
    FileKind kind;
};

constexpr NamedKind SYSTEM_FILES[] = {
    {"data/SystemCpuUsage.data", FileKind::SYSTEM_CPU},
    {"data/Memory.data", FileKind::MEMORY},
    {"data/ai_ctrl_cpu.data", FileKind::CPU_PROFILE},
    {"data/llc.data", FileKind::CHANNEL},
};
constexpr NamedKind PROCESS_FILES[] = {
    {"-CpuUsage.data", FileKind::PROCESS_CPU},
    {"-Memory.data", FileKind::PROCESS_MEMORY},
};

// What has to arrive of each sampler for it to have delivered anything.
constexpr NamedKind SAMPLERS[] = {
    {"cpu", FileKind::SYSTEM_CPU},        {"memory", FileKind::MEMORY},
    {"processes", FileKind::PROCESS_CPU}, {"llc", FileKind::CHANNEL},
    {"ctrl-cpu", FileKind::CPU_PROFILE},
};

std::string ShownName(const std::string& directory, const std::string& name) {
    std::string room;
    return std::string(Utf8Text(directory + "/" + name, room));
}

// The directories of the manifest's devices, and of `entry` on those of its pattern that it does
// not tell of.
void FindDevices(ResultDirectory& result, bool hasManifest, fs::directory_iterator entry) {
    std::error_code error;
    for (const fs::directory_iterator end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        uint64_t id = 0;
        if (name.compare(0, DEVICE_PREFIX.size(), DEVICE_PREFIX) != 0 ||
            !IsNumber(std::string_view(name).substr(DEVICE_PREFIX.size()), id) || id > INT32_MAX) {
            continue;
        }
        const bool known =
            std::any_of(result.devices.begin(), result.devices.end(),
                        [&](const auto& device) { return device.directory == name; });
        if (known) {
            continue;
        }
        if (hasManifest) {
            result.problems.push_back(fmt::format("manifest.json does not tell of {}", name));
        }
        DeviceFacts device;
        device.deviceId = static_cast<int>(id);
        device.directory = name;
        result.devices.push_back(std::move(device));
    }
    if (error) {
        result.problems.push_back(fmt::format("the result cannot be listed: {}", error.message()));
    }
    std::sort(result.devices.begin(), result.devices.end(),
              [](const auto& left, const auto& right) {
                  return std::tie(left.deviceId, left.directory) <
                         std::tie(right.deviceId, right.directory);
              });
}

void AddFile(const DeviceFacts& device, const fs::directory_entry& entry, const fs::path& base,
             ResultDirectory& result) {
    std::error_code error;
    FileFacts file;
    file.deviceId = device.deviceId;
    file.directory = device.directory;
    file.name = entry.path().lexically_relative(base).string();
    if (!fs::is_regular_file(entry.symlink_status(error))) {
        result.problems.push_back(
            fmt::format("{}: no regular file, not read", ShownName(file.directory, file.name)));
        return;
    }
    file.bytes = entry.file_size(error);
    file.kind = KindOfFile(file.name, file.pid);
    result.files.push_back(std::move(file));
}

enum class Listing { WHOLE, BROKEN_OFF, TOO_LONG };

// TOO_LONG when there are more files than `most`.
Listing FindFiles(const DeviceFacts& device, size_t most, ResultDirectory& result) {
    const fs::path base = fs::path(result.path) / device.directory;
    std::error_code error;
    if (!fs::is_directory(fs::symlink_status(base, error))) {
        result.problems.push_back(fmt::format("{} is missing", device.directory));
        return Listing::WHOLE;
    }
    fs::recursive_directory_iterator entry(base, error);
    const fs::recursive_directory_iterator end;
    while (!error && entry != end) {
        std::error_code ignored;
        if (fs::is_directory(entry->symlink_status(ignored))) {
            if (entry.depth() >= MAX_DIRECTORY_DEPTH) {
                entry.disable_recursion_pending();
            }
        } else if (result.files.size() >= most) {
            result.problems.push_back(
                fmt::format("more than {} files: the rest is not read", most));
            return Listing::TOO_LONG;
        } else {
            AddFile(device, *entry, base, result);
        }
        entry.increment(error);
    }
    if (error) {
        result.problems.push_back(
            fmt::format("{} cannot be listed: {}", device.directory, error.message()));
        return Listing::BROKEN_OFF;
    }
    return Listing::WHOLE;
}

// A result of an older tool has none.
void FindChunkTimes(const DeviceFacts& device, ResultDirectory& result) {
    FileFacts file;
    file.deviceId = device.deviceId;
    file.directory = ".";
    file.name = ChunkTimesPath(device.directory);
    file.kind = FileKind::CHUNK_TIMES;
    std::error_code error;
    const fs::path path = fs::path(result.path) / file.name;
    if (!device.directory.empty() && fs::is_regular_file(fs::symlink_status(path, error))) {
        file.bytes = fs::file_size(path, error);
        result.files.push_back(std::move(file));
    }
}

// Returns the directories of the devices that were seen whole.
std::set<std::string> FindFilesOfAll(size_t most, ResultDirectory& result) {
    Listing listing = Listing::WHOLE;
    std::set<std::string> seen;
    for (const DeviceFacts& device : result.devices) {
        if (listing != Listing::TOO_LONG) {
            listing = FindFiles(device, most, result);
        }
        if (listing == Listing::WHOLE) {
            seen.insert(device.directory);
        }
        FindChunkTimes(device, result);
    }
    return seen;
}

void SortFiles(std::vector<FileFacts>& files) {
    std::sort(files.begin(), files.end(), [](const auto& left, const auto& right) {
        const auto rank = [](const FileFacts& file) {
            const bool ofProcess =
                file.kind == FileKind::PROCESS_CPU || file.kind == FileKind::PROCESS_MEMORY;
            // Both files of a process stand side by side.
            return std::make_pair(ofProcess ? FileKind::PROCESS_CPU : file.kind, file.pid);
        };
        return std::make_tuple(left.deviceId, left.directory, rank(left), left.kind, left.name) <
               std::make_tuple(right.deviceId, right.directory, rank(right), right.kind,
                               right.name);
    });
}

// A name that is no UTF-8 stands in the manifest in another form and cannot be looked up. Of the
// devices that were not `seen` whole, here and below, nobody knows what is missing.
void CompareWithList(ResultDirectory& result, ListedFiles listed,
                     const std::set<std::string>& seen) {
    for (const FileFacts& file : result.files) {
        const auto entry = listed.find({file.directory, file.name});
        if (entry == listed.end()) {
            continue;
        }
        if (entry->second != file.bytes) {
            result.problems.push_back(fmt::format("{}: {} bytes, the manifest tells of {}",
                                                  ShownName(file.directory, file.name), file.bytes,
                                                  entry->second));
        }
        listed.erase(entry);
    }
    for (const auto& [where, bytes] : listed) {
        if (seen.count(where.first) > 0 && where.second.find("\xef\xbf\xbd") == std::string::npos) {
            result.problems.push_back(
                fmt::format("{}: missing, {} bytes", ShownName(where.first, where.second), bytes));
        }
    }
}

void NoteSilentSamplers(ResultDirectory& result, const std::set<std::string>& seen) {
    for (const DeviceFacts& device : result.devices) {
        for (const std::string& sampler : device.samplers) {
            const auto* known =
                std::find_if(std::begin(SAMPLERS), std::end(SAMPLERS),
                             [&](const NamedKind& entry) { return entry.name == sampler; });
            if (known == std::end(SAMPLERS) || seen.count(device.directory) == 0) {
                continue;
            }
            const bool arrived =
                std::any_of(result.files.begin(), result.files.end(), [&](const FileFacts& file) {
                    return file.deviceId == device.deviceId && file.kind == known->kind &&
                           file.bytes > 0;
                });
            if (!arrived) {
                result.problems.push_back(fmt::format(
                    "device {}: nothing arrived from the sampler {}", device.deviceId, sampler));
            }
        }
    }
}

}  // namespace

FileKind KindOfFile(const std::string& name, uint32_t& pid) {
    for (const NamedKind& entry : SYSTEM_FILES) {
        if (name == entry.name) {
            return entry.kind;
        }
    }
    std::string_view rest = name;
    uint64_t number = 0;
    if (TakeText(rest, "data/") && TakeNumber(rest, number) && number <= UINT32_MAX) {
        for (const NamedKind& entry : PROCESS_FILES) {
            if (rest == entry.name) {
                pid = static_cast<uint32_t>(number);
                return entry.kind;
            }
        }
    }
    return FileKind::OTHER;
}

std::optional<ResultDirectory> OpenResult(const std::string& path, std::string& error,
                                          size_t mostFiles) {
    std::error_code reason;
    fs::directory_iterator entries(path, reason);
    if (reason) {
        error = fmt::format(
            "cannot read the result {}: {}; name a directory that `tivctl collect` made", path,
            reason.message());
        return std::nullopt;
    }
    ResultDirectory result;
    result.path = path;
    ListedFiles listed;
    const bool hasManifest = ReadManifest(result, listed);
    FindDevices(result, hasManifest, std::move(entries));
    if (!hasManifest && result.devices.empty()) {
        error = fmt::format(
            "{} is no result: it holds neither a manifest.json that can be read nor a directory "
            "device_<number>; name a directory that `tivctl collect` made",
            path);
        return std::nullopt;
    }
    const std::set<std::string> seen = FindFilesOfAll(mostFiles, result);
    SortFiles(result.files);
    CompareWithList(result, std::move(listed), seen);
    if (result.state != "running") {
        NoteSilentSamplers(result, seen);
    }
    if (!result.complete && result.problems.empty()) {
        result.problems.emplace_back("manifest.json calls the result incomplete");
    }
    return result;
}

}  // namespace tiv::host
