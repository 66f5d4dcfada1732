// Tells the processes apart that had one process id after another.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/result/file_parser.h"

namespace tiv::host {

// What a reading of a process's CPU tells of the process itself.
struct ProcessIdentity {
    uint64_t startTicks = 0;
    uint32_t parentPid = 0;
    std::string_view name;  // as the kernel gave it
};

// The processes behind one process id, whose two files are read one after the other: first the CPU
// file, then the memory file. The CPU readings carry the time when the process started, which tells
// lives apart. Memory readings carry no such thing and belong to the life whose CPU was read
// nearest in time; where no CPU was read at all, a count of samples that begins anew is a new life.
class ProcessLives {
 public:
    // `lastProcess` numbers the processes of the whole result and outlives this object.
    ProcessLives(const ParseContext& context, uint32_t pid, uint64_t& lastProcess)
        : context_(context), pid_(pid), lastProcess_(lastProcess) {}

    // The number of the process that a reading belongs to. No value when there are more than a
    // result can have.
    std::optional<uint64_t> OfCpuReading(const ProcessIdentity& identity, uint64_t timeNs);
    // `name` is empty when it could not be read. `index` counts the samples of the file.
    std::optional<uint64_t> OfMemoryReading(std::string_view name, uint32_t index, uint64_t timeNs);

    // Gives the rows of all processes to the visitor. Both files have been read.
    void Finish();

    [[nodiscard]] uint32_t Pid() const { return pid_; }
    // The name of the process that appeared last, in the bytes that the kernel gave; empty when
    // none could be read so far. Valid until the next call.
    [[nodiscard]] std::string_view LatestName() const {
        return lives_.empty() ? std::string_view() : std::string_view(lives_.back().name);
    }

 private:
    struct Life {
        Life(uint64_t number, uint64_t timeNs)
            : process(number),
              firstNs(timeNs),
              lastNs(timeNs),
              firstCpuNs(timeNs),
              lastCpuNs(timeNs) {}

        uint64_t process;
        std::optional<uint64_t> startTicks;
        std::optional<uint32_t> parentPid;
        std::string name;
        uint64_t firstNs;
        uint64_t lastNs;
        uint64_t firstCpuNs;  // of the CPU file
        uint64_t lastCpuNs;
    };

    Life* NewLife(uint64_t timeNs);
    Life* LifeOf(const ProcessIdentity& identity, uint64_t timeNs);
    Life* NearestTo(uint64_t timeNs);
    Life* LifeOfCount(uint32_t index, uint64_t timeNs);
    static void Include(Life& life, uint64_t timeNs);

    const ParseContext context_;
    const uint32_t pid_;
    uint64_t& lastProcess_;
    std::vector<Life> lives_;  // in the order of their appearance
    bool hasCpu_ = false;
    uint32_t lastIndex_ = 0;
};

}  // namespace tiv::host
