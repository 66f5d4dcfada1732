// The tables that a result holds, row by row.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tiv::host {

struct ResultDirectory;

// Times are nanoseconds of the device's raw monotonic clock unless a row says otherwise. What was
// not measured is absent, never 0. Every number but a frame's address and offset fits 63 bits.
// Texts are UTF-8 without zero bytes: bytes of another encoding stand as \xNN; control characters,
// quotes and markup stay as they came. Views are valid during the call only.

// The states that a core's time is told apart by, in the order of /proc/stat. A guest's time is
// part of user and nice.
enum CpuState : uint8_t { USER, NICE, SYSTEM, IDLE, IOWAIT, IRQ, SOFTIRQ, STEAL, CPU_STATE_COUNT };
constexpr const char* CPU_STATE_NAMES[CPU_STATE_COUNT] = {"user",   "nice", "system",  "idle",
                                                          "iowait", "irq",  "softirq", "steal"};
constexpr int32_t ALL_CORES = -1;

// How a core spent the time since the reading before.
struct SystemCpuUse {
    uint64_t intervalNs = 0;
    double percent[CPU_STATE_COUNT] = {};  // shares of the time that was counted; 100 in all
};

// One line of the system's CPU times.
struct SystemCpuRow {
    int deviceId = 0;
    uint64_t timeNs = 0;
    int32_t core = ALL_CORES;
    uint64_t ticks[CPU_STATE_COUNT] = {};  // since boot
    // Absent in the first reading, when no tick went by, and when a counter went backwards.
    std::optional<SystemCpuUse> use;
};

// What a line of the memory reading is called. Each comes once, in front of its first value.
struct MemoryKeyRow {
    int deviceId = 0;
    uint32_t key = 0;  // counts from 0 in each device
    std::string_view name;
    bool isBytes = false;  // else a plain number
};

struct MemoryRow {
    int deviceId = 0;
    uint64_t timeNs = 0;
    uint32_t key = 0;
    uint64_t value = 0;
};

// A process is one life of a process id. Its row comes behind all of its readings.
struct ProcessRow {
    int deviceId = 0;
    uint64_t process = 0;  // names it in the other rows; counts from 1 in the whole result
    uint32_t pid = 0;
    std::optional<uint64_t> startTicks;  // since boot; absent when its CPU was never read
    std::optional<uint32_t> parentPid;
    std::string_view name;  // the last one seen; empty when none could be read
    uint64_t firstNs = 0;
    uint64_t lastNs = 0;
};

// CPU time of a process since the reading before. It may exceed the interval with several threads.
struct ProcessCpuUse {
    uint64_t intervalNs = 0;
    uint64_t userNs = 0;
    uint64_t systemNs = 0;
};

struct ProcessCpuRow {
    uint64_t process = 0;
    uint64_t timeNs = 0;
    uint64_t userTicks = 0;  // since its start
    uint64_t systemTicks = 0;
    uint64_t threads = 0;
    char state = '?';  // as the kernel calls it: R, S, D, Z, ...
    // Absent in the first reading and when a counter went backwards.
    std::optional<ProcessCpuUse> use;
};

struct ProcessMemoryRow {
    uint64_t process = 0;
    uint64_t timeNs = 0;
    uint64_t sizeBytes = 0;
    uint64_t residentBytes = 0;
    uint64_t sharedBytes = 0;
    uint64_t textBytes = 0;
    uint64_t dataBytes = 0;
};

struct StackFrame {
    uint64_t address = 0;
    std::string_view symbol;  // empty: unknown
    uint64_t offset = 0;      // of the address behind the symbol's start
    std::string_view module;  // file of the code; empty: unknown
};

// One sample of the CPU profile.
struct ProfileSampleRow {
    int deviceId = 0;
    uint64_t timeNs = 0;
    std::optional<uint32_t> core;
    std::optional<uint32_t> pid;  // mostly absent: the recorder tells threads only
    std::optional<uint32_t> threadId;
    std::string_view command;
    std::string_view event;
    uint64_t period = 0;
    const std::vector<StackFrame>& stack;  // innermost first
};

// What a channel's source called itself when it was started.
enum class ChannelSource { PERF, COUNTER, REPLAY, STATISTIC };
enum class ChannelClock { NONE, RAW_MONOTONIC, SINCE_START };
[[nodiscard]] const char* ChannelSourceName(ChannelSource source);
[[nodiscard]] const char* ChannelClockName(ChannelClock clock);

// One start of a driver channel, or one event of the cache statistic that stands in for it.
struct ChannelRow {
    int deviceId = 0;
    uint32_t channel = 0;  // names it in the other rows; counts from 1 in the whole result
    std::optional<uint32_t> channelId;  // the driver's; a statistic has none
    std::string_view file;
    std::string_view name;
    ChannelSource source = ChannelSource::PERF;
    ChannelClock clock = ChannelClock::NONE;
    uint32_t periodMs = 0;  // 0: it has none
    const std::vector<std::string>& events;
};

// What a channel counted within one of its periods.
struct ChannelCountRow {
    uint32_t channel = 0;
    uint64_t timeNs = 0;                 // of the channel's clock
    uint32_t event = 0;                  // place in the channel's list
    int32_t core = ALL_CORES;            // ALL_CORES: the sum
    uint64_t count = 0;                  // since the record before
    std::optional<uint64_t> intervalNs;  // since then; absent for the first and behind a loss
};

// Records that found no room in the driver's ring.
struct ChannelLossRow {
    uint32_t channel = 0;
    uint64_t timeNs = 0;
    uint64_t records = 0;
};

// Numbers of a counting source that follow each other: first, first + 1, ...
struct ChannelRunRow {
    uint32_t channel = 0;
    uint64_t first = 0;
    uint64_t numbers = 0;
};

// A chunk as it came to the collecting machine, on whose raw monotonic clock its time is.
struct ChunkRow {
    int deviceId = 0;
    uint64_t receivedNs = 0;
    uint64_t bytes = 0;
    std::string_view file;  // below the device's directory
};

enum class FileKind {
    SYSTEM_CPU,
    MEMORY,
    PROCESS_CPU,
    PROCESS_MEMORY,
    CPU_PROFILE,
    CHANNEL,
    CHUNK_TIMES,
    OTHER,  // kept, but nothing here can read it
};
[[nodiscard]] const char* FileKindName(FileKind kind);

// How the reading of one file went. Comes behind its rows.
struct FileRow {
    int deviceId = 0;
    std::string_view name;  // below the device's directory
    FileKind kind = FileKind::OTHER;
    uint64_t bytes = 0;
    uint64_t records = 0;  // that were read
    uint64_t unreadableRecords = 0;
    uint64_t unreadableBytes = 0;  // belonging to no record or to an unreadable one
    std::string_view problem;      // why it could not be read to its end; mostly empty
};

// What became of the reading.
struct ReadOutcome {
    // What is missing or damaged, one text each; empty for a complete result.
    std::vector<std::string> problems;
    std::optional<uint64_t> firstNs;  // of all readings
    std::optional<uint64_t> lastNs;
    bool cancelled = false;
};

// Takes the rows of a result in the order in which its files are read: first OnBegin, then file by
// file, each in the order of its records, at last OnEnd. All calls come from one thread. An
// exception ends the reading and reaches its caller.
class TableVisitor {
 public:
    TableVisitor() = default;
    virtual ~TableVisitor() = default;
    TableVisitor(const TableVisitor&) = delete;
    TableVisitor& operator=(const TableVisitor&) = delete;

    virtual void OnBegin(const ResultDirectory& /*result*/) {}
    virtual void OnSystemCpu(const SystemCpuRow& /*row*/) {}
    virtual void OnMemoryKey(const MemoryKeyRow& /*row*/) {}
    virtual void OnMemory(const MemoryRow& /*row*/) {}
    virtual void OnProcessCpu(const ProcessCpuRow& /*row*/) {}
    virtual void OnProcessMemory(const ProcessMemoryRow& /*row*/) {}
    virtual void OnProcess(const ProcessRow& /*row*/) {}
    virtual void OnProfileSample(const ProfileSampleRow& /*row*/) {}
    virtual void OnChannel(const ChannelRow& /*row*/) {}
    virtual void OnChannelCount(const ChannelCountRow& /*row*/) {}
    virtual void OnChannelLoss(const ChannelLossRow& /*row*/) {}
    virtual void OnChannelRun(const ChannelRunRow& /*row*/) {}
    virtual void OnChunk(const ChunkRow& /*row*/) {}
    virtual void OnFile(const FileRow& /*row*/) {}
    virtual void OnEnd(const ReadOutcome& /*outcome*/) {}
};

}  // namespace tiv::host
