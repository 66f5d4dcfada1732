// Rows as tracks and events.
#include "host/export/perfetto_exporter.h"

#include <fmt/format.h>

#include <cstdio>
#include <ctime>

namespace tiv::host {

namespace {

constexpr double PERCENT = 100.0;
constexpr double NS_PER_SECOND = 1e9;
constexpr const char* PHASE_NAMES[] = {"system CPU", "memory", "processes", "CPU profile",
                                       "channels"};
// More would only hide the rest of the trace.
constexpr size_t MAX_INSTANTS = 100;

uint64_t ProcessUuid(uint64_t process) { return TrackUuid(fmt::format("process {}", process)); }
uint64_t ProcessCpuUuid(uint64_t process) { return TrackUuid(fmt::format("cpu of {}", process)); }
uint64_t ProcessMemoryUuid(uint64_t process) {
    return TrackUuid(fmt::format("memory of {}", process));
}
uint64_t MemoryUuid(int deviceId, uint32_t key) {
    return TrackUuid(fmt::format("memory {} {}", deviceId, key));
}

}  // namespace

uint64_t TrackUuid(std::string_view key) {
    uint64_t hash = 0xcbf29ce484222325;
    for (const char c : key) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    }
    // The upper half of the numbers leaves the lower one to others.
    return hash | 1ULL << 63;
}

std::optional<uint64_t> WallNs(const std::string& utc) {
    tm parts{};
    int milliseconds = 0;
    char end = 0;
    if (std::sscanf(utc.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%3d%c", &parts.tm_year, &parts.tm_mon,
                    &parts.tm_mday, &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &milliseconds,
                    &end) != 8 ||
        end != 'Z' || milliseconds < 0) {
        return std::nullopt;
    }
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    const time_t seconds = timegm(&parts);
    if (seconds < 0 || seconds > UINT32_MAX) {
        return std::nullopt;
    }
    return static_cast<uint64_t>(seconds) * 1000000000 +
           static_cast<uint64_t>(milliseconds) * 1000000;
}

PerfettoExporter::PerfettoExporter(const std::string& path)
    : output_(path),
      tracks_(path + ".tracks"),
      events_(path + ".events"),
      profile_(packets_, tracks_, events_) {}

PerfettoExporter::~PerfettoExporter() = default;

bool PerfettoExporter::Open() { return output_.Open() && tracks_.Open() && events_.Open(); }

std::string PerfettoExporter::Error() const {
    for (const std::string& error : {output_.Error(), tracks_.Error(), events_.Error()}) {
        if (!error.empty()) {
            return error;
        }
    }
    return "";
}

bool PerfettoExporter::Commit() { return Error().empty() && output_.Commit(); }

void PerfettoExporter::OnBegin(const ResultDirectory& result) { result_ = &result; }

void PerfettoExporter::Declare(uint64_t uuid, uint64_t parent, const std::string& name) {
    if (declared_.insert(uuid).second) {
        tracks_.Write(packets_.Track({uuid, parent, name}));
    }
}

void PerfettoExporter::DeclareCounter(const TrackFacts& track, CounterUnit unit,
                                      std::string_view unitName) {
    if (declared_.insert(track.uuid).second) {
        tracks_.Write(packets_.CounterTrack(track, unit, unitName));
    }
}

uint64_t PerfettoExporter::Group(int deviceId, const char* kind) {
    const std::string name = fmt::format("{} of device {}", kind, deviceId);
    const uint64_t uuid = TrackUuid(name);
    Declare(uuid, 0, name);
    return uuid;
}

void PerfettoExporter::Saw(int deviceId, Phase phase, uint64_t timeNs) {
    phases_[deviceId][phase].Include(timeNs);
}

void PerfettoExporter::OnSystemCpu(const SystemCpuRow& row) {
    Saw(row.deviceId, CPU, row.timeNs);
    if (!row.use.has_value()) {
        return;
    }
    const uint64_t begin = row.timeNs - row.use->intervalNs;
    const auto write = [&](const std::string& name, double percent) {
        const uint64_t uuid = TrackUuid(fmt::format("cpu {} {}", row.deviceId, name));
        if (declared_.count(uuid) == 0) {
            DeclareCounter({uuid, Group(row.deviceId, "CPU"), name}, CounterUnit::OTHER, "%");
        }
        events_.Write(packets_.Value(uuid, begin, percent));
    };
    if (row.core != ALL_CORES) {
        const double rest = row.use->percent[IDLE] + row.use->percent[IOWAIT];
        write(fmt::format("core {} busy", row.core), PERCENT - rest);
        return;
    }
    for (size_t state = 0; state < CPU_STATE_COUNT; ++state) {
        write(fmt::format("all cores {}", CPU_STATE_NAMES[state]), row.use->percent[state]);
    }
}

void PerfettoExporter::OnMemoryKey(const MemoryKeyRow& row) {
    DeclareCounter({MemoryUuid(row.deviceId, row.key), Group(row.deviceId, "memory"), row.name},
                   row.isBytes ? CounterUnit::BYTES : CounterUnit::COUNT, "");
}

void PerfettoExporter::OnMemory(const MemoryRow& row) {
    Saw(row.deviceId, MEMORY, row.timeNs);
    events_.Write(packets_.Value(MemoryUuid(row.deviceId, row.key), row.timeNs, row.value));
}

void PerfettoExporter::OnProcessCpu(const ProcessCpuRow& row) {
    if (!row.use.has_value()) {
        return;
    }
    processesWithCpu_.insert(row.process);
    const double percent = PERCENT * static_cast<double>(row.use->userNs + row.use->systemNs) /
                           static_cast<double>(row.use->intervalNs);
    events_.Write(
        packets_.Value(ProcessCpuUuid(row.process), row.timeNs - row.use->intervalNs, percent));
}

void PerfettoExporter::OnProcessMemory(const ProcessMemoryRow& row) {
    processesWithMemory_.insert(row.process);
    events_.Write(packets_.Value(ProcessMemoryUuid(row.process), row.timeNs, row.residentBytes));
}

// A second life of a process id cannot have a track of the same process id: it is a plain group.
void PerfettoExporter::OnProcess(const ProcessRow& row) {
    Saw(row.deviceId, PROCESSES, row.firstNs);
    Saw(row.deviceId, PROCESSES, row.lastNs);
    const uint64_t uuid = ProcessUuid(row.process);
    const std::string name = row.name.empty() ? "(no name)" : std::string(row.name);
    if (pids_.insert(row.pid).second) {
        tracks_.Write(packets_.ProcessTrack({uuid, 0, name}, row.pid));
    } else {
        tracks_.Write(packets_.Track(
            {uuid, 0, fmt::format("{} {}, another process of this id", name, row.pid)}));
    }
    const uint64_t behind = row.lastNs + 1;
    if (processesWithCpu_.erase(row.process) != 0) {
        const uint64_t counter = ProcessCpuUuid(row.process);
        tracks_.Write(packets_.CounterTrack({counter, uuid, "CPU"}, CounterUnit::OTHER, "%"));
        events_.Write(packets_.Value(counter, behind, 0.0));
    }
    if (processesWithMemory_.erase(row.process) != 0) {
        const uint64_t counter = ProcessMemoryUuid(row.process);
        tracks_.Write(
            packets_.CounterTrack({counter, uuid, "resident memory"}, CounterUnit::BYTES, ""));
        events_.Write(packets_.Value(counter, behind, uint64_t{0}));
    }
}

void PerfettoExporter::OnProfileSample(const ProfileSampleRow& row) {
    Saw(row.deviceId, PROFILE, row.timeNs);
    profile_.Add(row);
}

void PerfettoExporter::OnChannel(const ChannelRow& row) {
    channel_.deviceId = row.deviceId;
    channel_.isOnTimeline = row.clock == ChannelClock::RAW_MONOTONIC;
    channel_.events = row.events;
    if (channel_.isOnTimeline) {
        channel_.uuid = TrackUuid(fmt::format("channel {}", row.channel));
        Declare(channel_.uuid, 0,
                fmt::format("{} (device {} channel {})", row.name, row.deviceId,
                            row.channelId.value_or(0)));
    }
}

void PerfettoExporter::OnChannelCount(const ChannelCountRow& row) {
    if (!channel_.isOnTimeline) {
        return;
    }
    Saw(channel_.deviceId, CHANNELS, row.timeNs);
    if (!row.intervalNs.has_value()) {
        return;
    }
    const uint64_t uuid =
        TrackUuid(fmt::format("channel {} {} {}", row.channel, row.event, row.core));
    if (declared_.count(uuid) == 0) {
        const std::string name =
            row.core == ALL_CORES ? channel_.events[row.event]
                                  : fmt::format("{} core {}", channel_.events[row.event], row.core);
        DeclareCounter({uuid, channel_.uuid, name}, CounterUnit::OTHER, "1/s");
    }
    const double perSecond =
        static_cast<double>(row.count) * NS_PER_SECOND / static_cast<double>(*row.intervalNs);
    events_.Write(packets_.Value(uuid, row.timeNs - *row.intervalNs, perSecond));
}

void PerfettoExporter::OnChannelLoss(const ChannelLossRow& row) {
    if (channel_.isOnTimeline) {
        events_.Write(packets_.Instant(channel_.uuid, row.timeNs,
                                       fmt::format("{} records lost", row.records)));
    }
}

// A stretch of the host's wall clock, which can be told in the device's.
void PerfettoExporter::WriteWallSlice(uint64_t track, const std::string& started,
                                      const std::string& ended, const std::string& name) {
    const auto from = WallNs(started);
    const auto to = WallNs(ended);
    if (!from.has_value() || !to.has_value()) {
        return;
    }
    const uint64_t offset = result_->clock->rawNs - result_->clock->wallNs;
    const uint64_t begin = *from + offset;
    const uint64_t end = *to + offset;
    if (begin < end && end <= static_cast<uint64_t>(INT64_MAX)) {
        events_.Write(packets_.SliceBegin(track, begin, name));
        events_.Write(packets_.SliceEnd(track, end));
    }
}

void PerfettoExporter::WriteCourse(uint64_t jobTrack, bool isWhole) {
    const char* suffix = isWhole ? "" : " (incomplete)";
    WriteWallSlice(jobTrack, result_->started, result_->ended, fmt::format("collection{}", suffix));
    const uint64_t uuid = TrackUuid("replays");
    for (size_t replay = 0; replay < result_->replays.size(); ++replay) {
        Declare(uuid, jobTrack, "replays");
        WriteWallSlice(uuid, result_->replays[replay].started, result_->replays[replay].ended,
                       fmt::format("replay {}{}", replay, suffix));
    }
}

void PerfettoExporter::WriteJob(int deviceId, bool isWhole) {
    const uint64_t job = Group(deviceId, "job");
    for (size_t phase = 0; phase < PHASE_COUNT; ++phase) {
        const TimeSpan& span = phases_[deviceId][phase];
        if (!span.firstNs.has_value()) {
            continue;
        }
        const uint64_t uuid = TrackUuid(fmt::format("job {} {}", deviceId, PHASE_NAMES[phase]));
        Declare(uuid, job, PHASE_NAMES[phase]);
        events_.Write(packets_.SliceBegin(
            uuid, *span.firstNs,
            fmt::format("{}{}", PHASE_NAMES[phase], isWhole ? "" : " (incomplete)")));
        events_.Write(packets_.SliceEnd(uuid, *span.lastNs));
    }
}

void PerfettoExporter::OnEnd(const ReadOutcome& outcome) {
    const bool isWhole = IsWhole(*result_, outcome);
    std::set<int> devices;
    for (const DeviceFacts& device : result_->devices) {
        devices.insert(device.deviceId);
    }
    const uint64_t collection = TrackUuid("collection");
    if (result_->clock.has_value()) {
        Declare(collection, 0, "collection");
        WriteCourse(collection, isWhole);
    }
    for (const int deviceId : devices) {
        WriteJob(deviceId, isWhole);
    }
    if (!isWhole) {
        const uint64_t uuid = TrackUuid("what is missing");
        Declare(uuid, 0, "INCOMPLETE");
        size_t written = 0;
        for (const std::string& problem : outcome.problems) {
            if (written++ < MAX_INSTANTS) {
                events_.Write(
                    packets_.Instant(uuid, outcome.lastNs.value_or(0), "INCOMPLETE: " + problem));
            }
        }
    }
    Join(outcome);
    result_ = nullptr;
}

void PerfettoExporter::Join(const ReadOutcome& outcome) {
    output_.Write(packets_.Clock(outcome.firstNs.value_or(0), result_->clock));
    for (OutputFile* part : {&tracks_, &events_}) {
        // A failure stays with the part.
        (void)part->ReadBack([this](std::string_view bytes) {
            output_.Write(bytes);
            return output_.Error().empty() && GoesOn();
        });
    }
}

}  // namespace tiv::host
