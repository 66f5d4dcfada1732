// The newest values of everything that a stream of rows tells.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/live/live_feed.h"
#include "host/live/live_snapshot.h"
#include "host/live/rate_window.h"
#include "host/result/tables.h"

namespace tiv::host {

// Takes rows as they come and tells at any time what is to be shown. Rates are made of readings of
// the device's clock; how old a reading is, of the time that chunks took to arrive: the fastest one
// of the last minutes counts as having taken none. Memory is bounded by the processes that live and
// by limits for everything that a device names. One thread.
class LiveModel : public TableVisitor {
 public:
    // `interval` is the time between two samples.
    explicit LiveModel(std::chrono::milliseconds interval);

    // The rows that follow come from this device, and those of a process belong to `pid`.
    void BeginChunk(int deviceId, uint32_t pid) {
        deviceId_ = deviceId;
        pid_ = pid;
    }
    // The chunk in hand has been read: its newest reading, if any, and when it arrived.
    void EndChunk(FileKind kind, std::optional<uint64_t> newestNs, uint64_t arrivalNs);
    void SetProcessName(uint32_t pid, std::string_view name);
    // Readings of the file were missed: nothing is known of its channels until they start anew.
    void ForgetChannels(int deviceId, const std::string& file);
    // Bytes that arrived so far. Called about once a second.
    void TakeCounts(const FeedCounts& counts, uint64_t nowNs);

    // Drops the processes that have not been seen for as long as a buffer of readings takes to
    // fill.
    void Prune();
    // Fills in what the rows told: all but the title, the phase and what belongs to the screen.
    void Fill(LiveSnapshot& snapshot, uint64_t nowNs) const;

    void OnSystemCpu(const SystemCpuRow& row) override;
    void OnMemoryKey(const MemoryKeyRow& row) override;
    void OnMemory(const MemoryRow& row) override;
    void OnProcessCpu(const ProcessCpuRow& row) override;
    void OnProcessMemory(const ProcessMemoryRow& row) override;
    void OnChannel(const ChannelRow& row) override;
    void OnChannelCount(const ChannelCountRow& row) override;
    void OnChannelLoss(const ChannelLossRow& row) override;

    [[nodiscard]] size_t Processes() const { return processes_.size(); }

 private:
    struct Core {
        RateWindow<CPU_STATE_COUNT> shares;
        SecondHistory busy;
    };
    struct Process {
        std::string name;
        uint64_t seenNs = 0;
        uint64_t number = 0;  // the life of the process id that the CPU was read of
        RateWindow<2> cpu;    // user and system, nanoseconds
        std::optional<char> state;
        std::optional<uint64_t> threads;
        std::optional<uint64_t> residentBytes;
        std::optional<uint64_t> sizeBytes;
    };
    struct Channel {
        int deviceId = 0;
        std::string file;
        std::string name;
        std::vector<std::string> events;
        std::map<std::pair<uint32_t, int32_t>, RateWindow<1>> counts;  // by event and core
        uint64_t lostRecords = 0;
        bool isStatistic = false;
    };
    // The newest reading of a kind, and how far its clock lies behind this machine's at least.
    struct Clock {
        std::optional<uint64_t> newestNs;
        std::optional<int64_t> leastOffset;  // of the minute in hand and the one before
        std::optional<int64_t> leastBefore;
        uint64_t minuteEndNs = 0;
    };

    [[nodiscard]] std::optional<double> Behind(FileKind kind, FileKind other, uint64_t nowNs) const;
    [[nodiscard]] std::vector<LiveProcess> SortedProcesses(ProcessOrder order) const;
    [[nodiscard]] std::vector<LiveStream> Streams(uint64_t nowNs) const;
    void AddChannels(LiveStream& stream) const;
    [[nodiscard]] static std::optional<double> RateOf(const Channel& channel, uint32_t event);
    Process* ProcessOf(uint64_t timeNs);

    const uint64_t intervalNs_;
    int deviceId_ = 0;
    uint32_t pid_ = 0;
    std::set<int> devices_;
    std::map<int32_t, Core> cores_;
    std::map<uint32_t, std::string> memoryKeys_;
    std::map<std::string, uint64_t, std::less<>> memory_;
    SecondHistory memoryUsed_;
    std::map<uint32_t, Process> processes_;
    std::map<uint32_t, Channel> channels_;  // by the reader's number
    std::map<FileKind, uint64_t> newest_;
    Clock clock_;

    struct Reading {
        uint64_t timeNs;
        FeedCounts counts;
    };
    std::vector<Reading> readings_;  // of the bytes that arrived, oldest first
};

}  // namespace tiv::host
