// Rows to newest values.
#include "host/live/live_model.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>

namespace tiv::host {

namespace {

constexpr double PERCENT = 100.0;
constexpr double NS_PER_SECOND = 1e9;
constexpr uint64_t MINUTE_NS = 60000000000;
constexpr uint64_t BYTE_WINDOW_NS = 10000000000;
// A dozen readings of a process's CPU fill a buffer of the daemon's; a process that was not seen
// for as long as two of them take has gone.
constexpr uint64_t MISSED_INTERVALS = 30;
constexpr uint64_t LEAST_MISSED_NS = 2000000000;
constexpr size_t MAX_PROCESSES = 65536;
constexpr size_t MAX_CORES = 4096;
constexpr size_t MAX_CHANNELS = 256;
constexpr size_t MAX_SERIES = 4096;

template <class Map, class Key>
std::optional<uint64_t> Find(const Map& map, const Key& key) {
    const auto found = map.find(key);
    return found == map.end() ? std::nullopt : std::optional<uint64_t>(found->second);
}

// Null when there is no such entry.
template <class Map, class Key>
auto* Entry(Map& map, const Key& key) {
    const auto found = map.find(key);
    return found == map.end() ? nullptr : &found->second;
}

double Seconds(uint64_t ns) { return static_cast<double>(ns) / NS_PER_SECOND; }

double Total(const LiveProcess& process) {
    return process.userPercent.value_or(-1) + process.systemPercent.value_or(0);
}

bool ComesBefore(const LiveProcess& left, const LiveProcess& right, ProcessOrder order) {
    const double leftCpu = order == ProcessOrder::CPU ? Total(left) : 0;
    const double rightCpu = order == ProcessOrder::CPU ? Total(right) : 0;
    const uint64_t leftBytes = order == ProcessOrder::PID ? 0 : left.residentBytes.value_or(0);
    const uint64_t rightBytes = order == ProcessOrder::PID ? 0 : right.residentBytes.value_or(0);
    return std::tie(rightCpu, rightBytes, left.pid) < std::tie(leftCpu, leftBytes, right.pid);
}

}  // namespace

LiveModel::LiveModel(std::chrono::milliseconds interval)
    : intervalNs_(static_cast<uint64_t>(std::chrono::nanoseconds(interval).count())) {}

void LiveModel::EndChunk(FileKind kind, std::optional<uint64_t> newestNs, uint64_t arrivalNs) {
    devices_.insert(deviceId_);
    if (!newestNs.has_value() || kind == FileKind::CHANNEL) {
        return;  // a channel's clock may be its own
    }
    newest_[kind] = *newestNs;
    clock_.newestNs = std::max(clock_.newestNs.value_or(0), *newestNs);
    const auto offset = static_cast<int64_t>(arrivalNs - *newestNs);
    if (arrivalNs >= clock_.minuteEndNs) {
        clock_.leastBefore = clock_.leastOffset;
        clock_.leastOffset.reset();
        clock_.minuteEndNs = arrivalNs + MINUTE_NS;
    }
    clock_.leastOffset = std::min(clock_.leastOffset.value_or(offset), offset);
}

std::optional<double> LiveModel::Behind(FileKind kind, FileKind other, uint64_t nowNs) const {
    const auto newest = std::max(Find(newest_, kind), Find(newest_, other));
    if (!newest.has_value()) {
        return std::nullopt;
    }
    const int64_t least =
        std::min(*clock_.leastOffset, clock_.leastBefore.value_or(*clock_.leastOffset));
    const auto behind = static_cast<int64_t>(nowNs - *newest) - least;
    return std::max(0.0, static_cast<double>(behind) / NS_PER_SECOND);
}

void LiveModel::OnSystemCpu(const SystemCpuRow& row) {
    if (cores_.size() >= MAX_CORES && cores_.find(row.core) == cores_.end()) {
        return;
    }
    Core& core = cores_[row.core];
    if (!row.use.has_value()) {
        core.shares.Clear();
        return;
    }
    std::array<double, CPU_STATE_COUNT> spent = {};
    const double seconds = Seconds(row.use->intervalNs);
    for (size_t state = 0; state < CPU_STATE_COUNT; ++state) {
        spent[state] = row.use->percent[state] * seconds;
    }
    core.shares.Add(row.timeNs, row.use->intervalNs, spent);
    core.busy.Add(row.timeNs, seconds, PERCENT - row.use->percent[IDLE] - row.use->percent[IOWAIT]);
}

void LiveModel::OnMemoryKey(const MemoryKeyRow& row) { memoryKeys_[row.key] = row.name; }

void LiveModel::OnMemory(const MemoryRow& row) {
    const std::string* name = Entry(memoryKeys_, row.key);
    if (name == nullptr) {
        return;
    }
    memory_[*name] = row.value;
    const auto total = Find(memory_, "MemTotal");
    if (*name == "MemAvailable" && total.value_or(0) > 0 && row.value <= *total) {
        memoryUsed_.Add(
            row.timeNs, 1,
            PERCENT * static_cast<double>(*total - row.value) / static_cast<double>(*total));
    }
}

LiveModel::Process* LiveModel::ProcessOf(uint64_t timeNs) {
    const auto known = processes_.find(pid_);
    if (known == processes_.end() && processes_.size() >= MAX_PROCESSES) {
        return nullptr;
    }
    Process& process = processes_[pid_];
    process.seenNs = timeNs;
    return &process;
}

void LiveModel::OnProcessCpu(const ProcessCpuRow& row) {
    Process* process = ProcessOf(row.timeNs);
    if (process == nullptr) {
        return;
    }
    if (process->number == 0) {
        process->number = row.process;
    } else if (process->number != row.process) {
        // Another process has taken the process id: nothing of the one before is its.
        const std::string name = process->name;
        *process = Process();
        process->name = name;
        process->seenNs = row.timeNs;
        process->number = row.process;
    }
    process->state = row.state;
    process->threads = row.threads;
    if (row.use.has_value()) {
        process->cpu.Add(
            row.timeNs, row.use->intervalNs,
            {static_cast<double>(row.use->userNs), static_cast<double>(row.use->systemNs)});
    } else {
        process->cpu.Clear();
    }
}

void LiveModel::OnProcessMemory(const ProcessMemoryRow& row) {
    Process* process = ProcessOf(row.timeNs);
    if (process != nullptr) {
        process->residentBytes = row.residentBytes;
        process->sizeBytes = row.sizeBytes;
    }
}

void LiveModel::SetProcessName(uint32_t pid, std::string_view name) {
    Process* process = Entry(processes_, pid);
    if (process != nullptr && !name.empty()) {
        process->name = name;
    }
}

void LiveModel::Prune() {
    const uint64_t missed = std::max(LEAST_MISSED_NS, MISSED_INTERVALS * intervalNs_);
    const uint64_t newest = clock_.newestNs.value_or(0);
    for (auto process = processes_.begin(); process != processes_.end();) {
        const uint64_t seen = process->second.seenNs;
        process = newest > seen && newest - seen > missed ? processes_.erase(process)
                                                          : std::next(process);
    }
}

void LiveModel::OnChannel(const ChannelRow& row) {
    for (auto channel = channels_.begin(); channel != channels_.end();) {
        const bool isSameFile =
            channel->second.deviceId == row.deviceId && channel->second.file == row.file;
        // A statistic has a channel for each event.
        const bool isRestarted = isSameFile && (row.source != ChannelSource::STATISTIC ||
                                                channel->second.events == row.events);
        channel = isRestarted ? channels_.erase(channel) : std::next(channel);
    }
    if (channels_.size() < MAX_CHANNELS) {
        Channel& channel = channels_[row.channel];
        channel.deviceId = row.deviceId;
        channel.file = row.file;
        channel.name = row.source == ChannelSource::STATISTIC ? "" : row.name;
        channel.events = row.events;
        channel.isStatistic = row.source == ChannelSource::STATISTIC;
    }
}

void LiveModel::OnChannelCount(const ChannelCountRow& row) {
    Channel* channel = Entry(channels_, row.channel);
    const std::pair series(row.event, row.core);
    if (channel == nullptr ||
        (channel->counts.size() >= MAX_SERIES && channel->counts.count(series) == 0)) {
        return;
    }
    RateWindow<1>& counts = channel->counts[series];
    // The first interval of a statistic is told from its start on; behind a gap that is too long.
    const bool isWhole =
        row.intervalNs.has_value() && !(channel->isStatistic && *row.intervalNs == row.timeNs);
    if (isWhole) {
        counts.Add(row.timeNs, *row.intervalNs, {static_cast<double>(row.count)});
    } else {
        counts.Clear();
    }
}

void LiveModel::OnChannelLoss(const ChannelLossRow& row) {
    if (Channel* channel = Entry(channels_, row.channel); channel != nullptr) {
        channel->lostRecords += row.records;
    }
}

void LiveModel::ForgetChannels(int deviceId, const std::string& file) {
    for (auto& [number, channel] : channels_) {
        if (channel.deviceId == deviceId && channel.file == file) {
            channel.counts.clear();
        }
    }
}

// The sum of what the cores count, or what the channel gives as the sum.
std::optional<double> LiveModel::RateOf(const Channel& channel, uint32_t event) {
    std::optional<double> sum;
    for (auto series = channel.counts.lower_bound({event, ALL_CORES});
         series != channel.counts.end() && series->first.first == event; ++series) {
        const auto rate = series->second.PerSecond();
        if (series->first.second == ALL_CORES && rate.has_value()) {
            return rate->front();
        }
        if (rate.has_value()) {
            sum = sum.value_or(0) + rate->front();
        }
    }
    return sum;
}

void LiveModel::AddChannels(LiveStream& stream) const {
    for (const auto& [number, channel] : channels_) {
        const std::string name = channel.file.substr(channel.file.rfind('/') + 1);
        if (channel.deviceId != stream.deviceId || name != stream.name) {
            continue;
        }
        stream.source = channel.name;
        stream.lostRecords += channel.lostRecords;
        for (uint32_t event = 0; event < channel.events.size(); ++event) {
            stream.events.push_back({channel.events[event], RateOf(channel, event)});
        }
    }
}

void LiveModel::TakeCounts(const FeedCounts& counts, uint64_t nowNs) {
    readings_.push_back({nowNs, counts});
    while (readings_.size() > 2 && nowNs - readings_[1].timeNs >= BYTE_WINDOW_NS) {
        readings_.erase(readings_.begin());
    }
}

std::vector<LiveStream> LiveModel::Streams(uint64_t /*nowNs*/) const {
    std::vector<LiveStream> streams;
    if (readings_.empty()) {
        return streams;
    }
    const Reading& first = readings_.front();
    const Reading& last = readings_.back();
    for (const StreamCount& count : last.counts.streams) {
        LiveStream stream;
        stream.deviceId = count.deviceId;
        stream.isChannel = count.kind == FileKind::CHANNEL;
        stream.name = count.name;
        stream.bytes = count.bytes;
        stream.chunks = count.chunks;
        const auto before = std::find_if(
            first.counts.streams.begin(), first.counts.streams.end(), [&](const auto& other) {
                return other.deviceId == count.deviceId && other.kind == count.kind &&
                       other.name == count.name;
            });
        const uint64_t beforeBytes = before == first.counts.streams.end() ? 0 : before->bytes;
        if (last.timeNs > first.timeNs) {
            stream.bytesPerSecond = static_cast<double>(count.bytes - beforeBytes) /
                                    Seconds(last.timeNs - first.timeNs);
        }
        if (stream.isChannel) {
            AddChannels(stream);
        }
        streams.push_back(std::move(stream));
    }
    return streams;
}

std::vector<LiveProcess> LiveModel::SortedProcesses(ProcessOrder order) const {
    std::vector<LiveProcess> sorted;
    for (const auto& [pid, process] : processes_) {
        LiveProcess shown;
        shown.pid = pid;
        shown.name = process.name;
        shown.state = process.state;
        shown.threads = process.threads;
        shown.residentBytes = process.residentBytes;
        shown.sizeBytes = process.sizeBytes;
        if (const auto rate = process.cpu.PerSecond(); rate.has_value()) {
            shown.userPercent = PERCENT * (*rate)[0] / NS_PER_SECOND;
            shown.systemPercent = PERCENT * (*rate)[1] / NS_PER_SECOND;
        }
        sorted.push_back(std::move(shown));
    }
    std::sort(sorted.begin(), sorted.end(), [order](const auto& left, const auto& right) {
        return ComesBefore(left, right, order);
    });
    return sorted;
}

void LiveModel::Fill(LiveSnapshot& snapshot, uint64_t nowNs) const {
    snapshot.devices.assign(devices_.begin(), devices_.end());
    for (const auto& [number, core] : cores_) {
        snapshot.cores.push_back({number, core.shares.PerSecond(), core.busy.Values()});
    }
    snapshot.memory.totalBytes = Find(memory_, "MemTotal");
    snapshot.memory.availableBytes = Find(memory_, "MemAvailable");
    snapshot.memory.freeBytes = Find(memory_, "MemFree");
    snapshot.memory.cachedBytes = Find(memory_, "Cached");
    snapshot.memory.swapTotalBytes = Find(memory_, "SwapTotal");
    snapshot.memory.swapFreeBytes = Find(memory_, "SwapFree");
    snapshot.memory.usedPercent = memoryUsed_.Values();
    snapshot.processes = SortedProcesses(snapshot.order);
    snapshot.streams = Streams(nowNs);
    snapshot.cpuBehindSeconds = Behind(FileKind::SYSTEM_CPU, FileKind::SYSTEM_CPU, nowNs);
    snapshot.memoryBehindSeconds = Behind(FileKind::MEMORY, FileKind::MEMORY, nowNs);
    snapshot.processesBehindSeconds =
        Behind(FileKind::PROCESS_CPU, FileKind::PROCESS_MEMORY, nowNs);
    if (readings_.size() > 1) {
        const Reading& first = readings_.front();
        const Reading& last = readings_.back();
        snapshot.bytesPerSecond = static_cast<double>(last.counts.bytes - first.counts.bytes) /
                                  Seconds(last.timeNs - first.timeNs);
    }
}

}  // namespace tiv::host
