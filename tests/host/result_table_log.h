// The rows of a result as lines of text, for comparing.
#pragma once

#include <fmt/format.h>

#include <string>
#include <vector>

#include "host/result/tables.h"

namespace tiv::test {

// Writes a line for each row. An absent value stands as "-".
class TableLog : public host::TableVisitor {
 public:
    std::vector<std::string> lines;
    host::ReadOutcome outcome;

    void OnSystemCpu(const host::SystemCpuRow& row) override {
        std::string use = " -";
        if (row.use.has_value()) {
            use = fmt::format(" {}:{:.4g}", row.use->intervalNs, fmt::join(row.use->percent, ","));
        }
        Add("cpu {} {} {} {}{}", row.deviceId, row.timeNs, row.core, fmt::join(row.ticks, ","),
            use);
    }
    void OnMemoryKey(const host::MemoryKeyRow& row) override {
        Add("key {} {} {} {}", row.deviceId, row.key, row.name, row.isBytes ? "bytes" : "number");
    }
    void OnMemory(const host::MemoryRow& row) override {
        Add("memory {} {} {} {}", row.deviceId, row.timeNs, row.key, row.value);
    }
    void OnProcessCpu(const host::ProcessCpuRow& row) override {
        std::string use = "-";
        if (row.use.has_value()) {
            use = fmt::format("{}:{}+{}", row.use->intervalNs, row.use->userNs, row.use->systemNs);
        }
        Add("process_cpu {} {} {}+{} {} {} {}", row.process, row.timeNs, row.userTicks,
            row.systemTicks, row.threads, row.state, use);
    }
    void OnProcessMemory(const host::ProcessMemoryRow& row) override {
        Add("process_memory {} {} {} {} {} {} {}", row.process, row.timeNs, row.sizeBytes,
            row.residentBytes, row.sharedBytes, row.textBytes, row.dataBytes);
    }
    void OnProcess(const host::ProcessRow& row) override {
        Add("process {} {} pid={} start={} parent={} [{}..{}] {}", row.deviceId, row.process,
            row.pid, Text(row.startTicks), Text(row.parentPid), row.firstNs, row.lastNs, row.name);
    }
    void OnProfileSample(const host::ProfileSampleRow& row) override {
        Add("sample {} {} core={} pid={} thread={} {} {} {}", row.deviceId, row.timeNs,
            Text(row.core), Text(row.pid), Text(row.threadId), row.period, row.event, row.command);
        for (const host::StackFrame& frame : row.stack) {
            Add("  {:x} {}+{:x} {}", frame.address, frame.symbol, frame.offset, frame.module);
        }
    }
    void OnChannel(const host::ChannelRow& row) override {
        Add("channel {} {} id={} {} {} {} {} {}ms {}", row.deviceId, row.channel,
            Text(row.channelId), row.file, row.name, host::ChannelSourceName(row.source),
            host::ChannelClockName(row.clock), row.periodMs, fmt::join(row.events, ","));
    }
    void OnChannelCount(const host::ChannelCountRow& row) override {
        Add("count {} {} {} {} {} {}", row.channel, row.timeNs, row.event, row.core, row.count,
            Text(row.intervalNs));
    }
    void OnChannelLoss(const host::ChannelLossRow& row) override {
        Add("loss {} {} {}", row.channel, row.timeNs, row.records);
    }
    void OnChannelRun(const host::ChannelRunRow& row) override {
        Add("run {} {} {}", row.channel, row.first, row.numbers);
    }
    void OnChunk(const host::ChunkRow& row) override {
        Add("chunk {} {} {} {}", row.deviceId, row.receivedNs, row.bytes, row.file);
    }
    void OnFile(const host::FileRow& row) override {
        Add("file {} {} {} {} bytes, {} read, {} in {} unreadable{}{}", row.deviceId, row.name,
            host::FileKindName(row.kind), row.bytes, row.records, row.unreadableBytes,
            row.unreadableRecords, row.problem.empty() ? "" : ": ", row.problem);
    }
    void OnEnd(const host::ReadOutcome& end) override { outcome = end; }

 private:
    template <class Number>
    static std::string Text(const std::optional<Number>& number) {
        return number.has_value() ? std::to_string(*number) : "-";
    }
    template <class... Values>
    void Add(fmt::format_string<Values...> form, Values&&... values) {
        lines.push_back(fmt::format(form, std::forward<Values>(values)...));
    }
};

}  // namespace tiv::test
