// A timeline for the Perfetto UI.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "host/export/exporter.h"
#include "host/export/gzip_file.h"
#include "host/export/perfetto_packets.h"
#include "host/export/perfetto_profile.h"
#include "host/output_file.h"
#include "host/result/file_parser.h"

namespace tiv::host {

// Writes a compressed Perfetto trace:
//
//   | clock | all tracks | all events |
//
// Readers of the format lose events whose track was declared behind them, and a process is known
// only behind its readings: tracks and events go to two scratch files beside the output, which are
// joined at the end.
//
//   collection             the collection and its replays, where the host's clock is known in the
//                          device's
//   job of device 0        one slice for each kind of readings, from the first to the last
//   INCOMPLETE             what is missing as instants
//   CPU of device 0        all cores by state in %, each core's busy share in %
//   memory of device 0     the lines of the memory reading
//   <name> <pid>           CPU in % of one core, resident memory
//   <channel's name>       each event and core, per second
//
// A share or a rate stands at the begin of the interval it was measured over and holds to the next
// one; a process's counters fall to 0 behind its last reading. Channels without the device's clock
// are not on the timeline.
class PerfettoExporter : public Exporter {
 public:
    explicit PerfettoExporter(const std::string& path);
    ~PerfettoExporter() override;

    bool Open() override;
    bool Commit() override;
    std::string Error() const override;
    std::vector<std::string> Outputs() const override { return {output_.Path()}; }

    void OnBegin(const ResultDirectory& result) override;
    void OnSystemCpu(const SystemCpuRow& row) override;
    void OnMemoryKey(const MemoryKeyRow& row) override;
    void OnMemory(const MemoryRow& row) override;
    void OnProcessCpu(const ProcessCpuRow& row) override;
    void OnProcessMemory(const ProcessMemoryRow& row) override;
    void OnProcess(const ProcessRow& row) override;
    void OnProfileSample(const ProfileSampleRow& row) override;
    void OnChannel(const ChannelRow& row) override;
    void OnChannelCount(const ChannelCountRow& row) override;
    void OnChannelLoss(const ChannelLossRow& row) override;
    void OnEnd(const ReadOutcome& outcome) override;

 private:
    enum Phase : uint8_t { CPU, MEMORY, PROCESSES, PROFILE, CHANNELS, PHASE_COUNT };
    struct Channel {
        int deviceId = 0;
        bool isOnTimeline = false;
        uint64_t uuid = 0;
        std::vector<std::string> events;
    };

    void Declare(uint64_t uuid, uint64_t parent, const std::string& name);
    void DeclareCounter(const TrackFacts& track, CounterUnit unit, std::string_view unitName);
    void Saw(int deviceId, Phase phase, uint64_t timeNs);
    uint64_t Group(int deviceId, const char* kind);
    void WriteJob(int deviceId, bool isWhole);
    void WriteCourse(uint64_t jobTrack, bool isWhole);
    void WriteWallSlice(uint64_t track, const std::string& started, const std::string& ended,
                        const std::string& name);
    void Join(const ReadOutcome& outcome);

    GzipFile output_;
    OutputFile tracks_;
    OutputFile events_;
    PerfettoPackets packets_;
    PerfettoProfile profile_;
    const ResultDirectory* result_ = nullptr;
    std::unordered_set<uint64_t> declared_;  // uuids of groups and their counters
    std::map<int, std::array<TimeSpan, PHASE_COUNT>> phases_;
    std::set<uint64_t> processesWithCpu_;  // of the process id in hand
    std::set<uint64_t> processesWithMemory_;
    std::unordered_set<uint64_t> pids_;  // that have a process track
    Channel channel_;                    // the last one that started
};

// Identifies the track of `key` in every trace; never 0.
[[nodiscard]] uint64_t TrackUuid(std::string_view key);

// Nanoseconds since 1970 of "2026-11-21T03:14:07.123Z"; no value for another form.
[[nodiscard]] std::optional<uint64_t> WallNs(const std::string& utc);

}  // namespace tiv::host
