// A report of readings that a test makes up.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "host/report/report_model.h"
#include "host/report_decode.h"

namespace tiv::host {

constexpr uint64_t MS = 1'000'000;
constexpr uint64_t START = 16'000 * MS;  // a border of cells

inline ResultDirectory CompleteResult() {
    ResultDirectory result;
    result.path = "/results/PROF_1/";
    result.tool = "tivctl 1.0.0";
    result.state = "complete";
    result.complete = true;
    result.devices.push_back({0, "device_0", "job-1", {"cpu"}, true, true, "", "{}"});
    return result;
}

// A model that has begun, and what is asked of its page.
class ReportModelTest : public testing::Test {
 protected:
    ReportModelTest() { model.OnBegin(CompleteResult()); }

    DecodedPage Decode(const ReadOutcome& outcome = {}) {
        model.OnEnd(outcome);
        return DecodedPage(model.Encode());
    }

    void AddCpu(uint64_t timeMs, int32_t core, double user, double system, double idle) {
        SystemCpuRow row;
        row.timeNs = START + timeMs * MS;
        row.core = core;
        row.use.emplace();
        row.use->intervalNs = 100 * MS;
        row.use->percent[USER] = user;
        row.use->percent[SYSTEM] = system;
        row.use->percent[IDLE] = idle;
        model.OnSystemCpu(row);
    }

    // A row for each section of the page.
    void AddSomethingOfEverything() {
        const std::vector<StackFrame> stack = {{1, "f", 0, "m"}};
        const std::vector<std::string> events = {"e"};
        AddCpu(100, ALL_CORES, 50, 0, 50);
        AddCpu(100, 0, 50, 0, 50);
        AddProcess(1, 7, "p", 1, 4096);
        model.OnMemoryKey({0, 0, "MemTotal", true});
        model.OnMemoryKey({0, 1, "MemFree", true});
        model.OnMemory({0, START, 0, 1000});
        model.OnMemory({0, START, 1, 400});
        model.OnChannel({0, 1, 8, "f", "", ChannelSource::PERF, ChannelClock::NONE, 100, events});
        model.OnProfileSample({0, START, {}, {}, {}, "app", "cycles", 1, stack});
        model.OnChunk({0, START, 1000, "data/llc.data"});
        model.OnFile({0, "data/x", FileKind::SYSTEM_CPU, 10, 1, 2, 3, "cut"});
    }

    void AddProcess(uint64_t process, uint32_t pid, const char* name, uint64_t cpuMs,
                    uint64_t residentBytes) {
        ProcessCpuRow cpu;
        cpu.process = process;
        cpu.timeNs = START + 100 * MS;
        cpu.use.emplace();
        cpu.use->intervalNs = 100 * MS;
        cpu.use->userNs = cpuMs * MS;
        model.OnProcessCpu(cpu);
        ProcessMemoryRow memory;
        memory.process = process;
        memory.timeNs = START + 100 * MS;
        memory.residentBytes = residentBytes;
        model.OnProcessMemory(memory);
        model.OnProcess({0, process, pid, 1, 1, name, START, START + 100 * MS});
    }

    ReportModel model;
};

inline nlohmann::json RowOf(const nlohmann::json& table, const std::string& first) {
    for (const auto& row : table.at("rows")) {
        if (row.at(0) == first) {
            return row;
        }
    }
    return nullptr;
}

inline std::string FactOf(const DecodedPage& page, const std::string& name) {
    for (const auto& fact : page.model.at("facts")) {
        if (fact.at(0) == name) {
            return fact.at(1);
        }
    }
    return "";
}

}  // namespace tiv::host
