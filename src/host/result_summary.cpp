// The closing table of a collection.
#include "host/result_summary.h"

#include <fmt/format.h>

#include <cctype>
#include <fstream>

#include "host/console.h"
#include "host/duration.h"
#include "host/result/channel_samples.h"
#include "host/result/profile_samples.h"
#include "host/result/record_reader.h"
#include "host/result/result_directory.h"

namespace tiv::host {

namespace {

constexpr size_t READ_BYTES = 1 << 20;
constexpr std::string_view FIRST_KEY = "TimeStamp:";
constexpr std::string_view CPU_PROFILE = "data/ai_ctrl_cpu.data";
constexpr std::string_view CHANNEL = "data/llc.data";

struct Row {
    uint64_t files = 0;
    uint64_t bytes = 0;
    std::optional<uint64_t> samples;
};

// "data/1234-Memory.data" belongs to a process; the processes' files share a row.
std::string RowName(const std::string& name) {
    const size_t start = name.rfind('/') == std::string::npos ? 0 : name.rfind('/') + 1;
    size_t digits = start;
    while (digits < name.size() && std::isdigit(static_cast<unsigned char>(name[digits])) != 0) {
        ++digits;
    }
    if (digits == start || digits >= name.size() || name[digits] != '-') {
        return name;
    }
    return name.substr(0, start) + "<pid>" + name.substr(digits);
}

bool EndsWith(std::string_view path, std::string_view name) {
    return path.size() >= name.size() && path.substr(path.size() - name.size()) == name;
}

// The rest of the file, block by block.
template <class Reader>
void FeedAll(std::ifstream& file, Reader& reader) {
    std::string buffer(READ_BYTES, '\0');
    while (file.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) ||
           file.gcount() > 0) {
        reader.Feed(std::string_view(buffer.data(), static_cast<size_t>(file.gcount())));
    }
    reader.Finish();
}

void PrintDevice(DeviceRun& run) {
    std::map<std::string, Row> rows;
    for (const auto& [name, summary] : run.Files().Summaries()) {
        Row& row = rows[RowName(name)];
        const std::optional<uint64_t> samples = CountSamples(run.Directory() + "/" + name);
        ++row.files;
        row.bytes += summary.bytes;
        if (samples.has_value()) {
            row.samples = row.samples.value_or(0) + *samples;
        }
    }
    Say(stdout,
        fmt::format("  {:<32} {:>6} {:>10} {:>10}\n", fmt::format("device {}", run.Job().deviceId),
                    "files", "samples", "bytes"));
    for (const auto& [name, row] : rows) {
        Say(stdout, fmt::format("  {:<32} {:>6} {:>10} {:>10}\n", Printable(name), row.files,
                                row.samples.has_value() ? std::to_string(*row.samples) : "-",
                                FormatBytes(static_cast<double>(row.bytes))));
    }
    for (const auto& [name, chunks] : run.Files().RefusedNames()) {
        Say(stdout,
            fmt::format("  refused file name \"{}\": {} chunks were not kept\n", name, chunks));
    }
    Say(stdout, fmt::format("  data session: {}\n",
                            run.Complete()
                                ? "complete, the device sent everything it had"
                                : "INCOMPLETE, " + (run.Failure().empty() ? "some data was refused"
                                                                          : run.Failure())));
}

// Everything that was sent has arrived, and still something is not there.
void PrintMissing(const std::string& directory) {
    std::string ignored;
    const auto result = OpenResult(directory, ignored);
    if (!result.has_value() || !result->complete) {
        return;
    }
    for (const std::string& problem : result->problems) {
        Say(stdout, fmt::format("  {}: too short a time, or the daemon's log tells why\n",
                                Printable(problem)));
    }
}

}  // namespace

std::optional<uint64_t> CountSamples(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file.is_open()) {
        return std::nullopt;
    }
    if (EndsWith(path, CPU_PROFILE)) {
        ProfileSampleCounter counter;
        FeedAll(file, counter);
        return counter.Samples();
    }
    if (EndsWith(path, CHANNEL)) {
        ChannelSampleCounter counter;
        FeedAll(file, counter);
        return counter.Samples();
    }
    std::string first(FIRST_KEY.size(), '\0');
    file.read(first.data(), static_cast<std::streamsize>(first.size()));
    if (first != FIRST_KEY) {
        return std::nullopt;
    }
    file.seekg(0);
    RecordReader reader([](const SampleRecord&) {});
    FeedAll(file, reader);
    return reader.Records();
}

void PrintSummary(const std::string& directory,
                  const std::vector<std::unique_ptr<DeviceRun>>& runs) {
    Say(stdout, fmt::format("result: {}\n", directory));
    for (const auto& run : runs) {
        PrintDevice(*run);
    }
    PrintMissing(directory);
}

}  // namespace tiv::host
