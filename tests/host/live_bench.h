// What the tests of the live view share: readings as the daemon writes them.
#pragma once

#include <fmt/format.h>

#include <string>

#include "host/live/live_model.h"
#include "host/live/live_reader.h"
#include "host/result/result_directory.h"
#include "host/result_parse.h"

namespace tiv::test {

constexpr uint64_t SECOND_NS = 1000000000;

// A line of the system's CPU times.
inline std::string CpuLine(const std::string& core, uint64_t user, uint64_t idle) {
    return fmt::format("cpu{} {} 0 0 {} 0 0 0 0 0 0\n", core, user, idle);
}

// The CPU of a process that is named `name`, at some ticks of user and system time.
inline std::string ProcessStat(uint32_t pid, const std::string& name, uint64_t user,
                               uint64_t system, uint64_t start = 77) {
    return fmt::format(
        "{} ({}) R 1 1 1 0 -1 0 0 0 0 0 {} {} 0 0 20 0 3 0 {} 1000 10\nProcessName:{}\n", pid, name,
        user, system, start, name);
}

inline std::string ProcessPages(uint64_t size, uint64_t resident, const std::string& name) {
    return fmt::format("{} {} 0 0 0 0 0\nProcessName:{}\n", size, resident, name);
}

// A model and the reader that feeds it.
struct LiveBench {
    host::LiveModel model{std::chrono::milliseconds(100)};
    host::LiveReader reader{model, 4096, 100};
    uint64_t arrivalNs = 1000 * SECOND_NS;

    // A chunk arrives.
    void Give(const std::string& name, const std::string& data, bool afterGap = false) {
        host::LiveChunk chunk;
        chunk.fileName = name;
        chunk.kind = host::KindOfFile(name, chunk.pid);
        chunk.data = data;
        chunk.arrivalNs = arrivalNs;
        chunk.afterGap = afterGap;
        reader.Read(chunk);
    }
    host::LiveSnapshot Snapshot(host::ProcessOrder order = host::ProcessOrder::CPU) {
        host::LiveSnapshot snapshot;
        snapshot.order = order;
        model.Fill(snapshot, arrivalNs);
        return snapshot;
    }
};

}  // namespace tiv::test
