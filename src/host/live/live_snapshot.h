// What a live view shows at one moment.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/result/tables.h"

namespace tiv::host {

// Absent is what was not measured. Rates cover about one second of the device's clock, and bytes
// per second about ten seconds of this machine's.

using History = std::vector<std::optional<double>>;  // a value for each second, oldest first

struct LiveCore {
    int32_t core = ALL_CORES;
    std::optional<std::array<double, CPU_STATE_COUNT>> percent;
    History busyPercent;
};

struct LiveMemory {
    std::optional<uint64_t> totalBytes;
    std::optional<uint64_t> availableBytes;
    std::optional<uint64_t> freeBytes;
    std::optional<uint64_t> cachedBytes;
    std::optional<uint64_t> swapTotalBytes;
    std::optional<uint64_t> swapFreeBytes;
    History usedPercent;
};

struct LiveProcess {
    uint32_t pid = 0;
    std::string name;  // of any bytes
    std::optional<char> state;
    std::optional<double> userPercent;  // of one core
    std::optional<double> systemPercent;
    std::optional<uint64_t> residentBytes;
    std::optional<uint64_t> sizeBytes;
    std::optional<uint64_t> threads;
};

struct LiveEvent {
    std::string name;  // of any bytes
    std::optional<double> perSecond;
};

// A driver channel, or what arrives from one of the samplers.
struct LiveStream {
    int deviceId = 0;
    bool isChannel = false;
    std::string name;    // of any bytes
    std::string source;  // what the channel calls itself; empty when it has not said so
    std::optional<double> bytesPerSecond;
    uint64_t bytes = 0;
    uint64_t chunks = 0;
    std::vector<LiveEvent> events;
    uint64_t lostRecords = 0;  // for which the driver's ring had no room
};

// What waits between the sessions and the view.
struct LiveQueue {
    uint64_t waiting = 0;
    uint64_t waitingBytes = 0;
    uint64_t mostWaiting = 0;
    uint64_t skippedChunks = 0;
    uint64_t skippedFrames = 0;
    uint64_t unreadable = 0;  // records
};

enum class ProcessOrder { CPU, MEMORY, PID };

struct LiveSnapshot {
    std::string title;  // "tivctl top"
    std::string phase;
    std::chrono::milliseconds elapsed{0};
    std::chrono::milliseconds total{0};  // 0: no end is known
    std::vector<int> devices;
    uint64_t bytes = 0;
    std::optional<double> bytesPerSecond;
    bool paused = false;

    bool samplesCpu = false;  // whether the job asks for it
    bool samplesMemory = false;
    bool samplesProcesses = false;
    bool samplesChannels = false;

    std::vector<LiveCore> cores;             // the one of all cores first
    std::optional<double> cpuBehindSeconds;  // age of the newest reading
    std::optional<double> memoryBehindSeconds;
    std::optional<double> processesBehindSeconds;
    LiveMemory memory;
    ProcessOrder order = ProcessOrder::CPU;
    std::vector<LiveProcess> processes;  // in this order
    std::vector<LiveStream> streams;
    LiveQueue queue;
};

}  // namespace tiv::host
