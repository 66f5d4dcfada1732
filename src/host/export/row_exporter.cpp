// Which value goes into which cell.
#include "host/export/row_exporter.h"

#include <fmt/format.h>

namespace tiv::host {

namespace {

constexpr double PERCENT = 100.0;
constexpr double NS_PER_SECOND = 1e9;

}  // namespace

RowExporter::RowExporter(CellSink& sink)
    : sink_(sink),
      stacks_(
          [this](const NamedFrame& frame) {
              sink_.BeginRow(Table::PROFILE_FRAME);
              sink_.Integer(frame.frame);
              MaybeText(frame.symbol);
              MaybeText(frame.module);
              sink_.EndRow();
          },
          [this](const StackStep& step) {
              sink_.BeginRow(Table::PROFILE_STACK);
              sink_.Integer(step.stack);
              Maybe(step.parent == 0 ? std::nullopt : std::optional(step.parent));
              sink_.Integer(step.frame);
              sink_.Integer(step.depth);
              sink_.EndRow();
          }) {}

template <class Number>
void RowExporter::Maybe(const std::optional<Number>& value) {
    if (value.has_value()) {
        sink_.Integer(*value);
    } else {
        sink_.Absent();
    }
}

void RowExporter::MaybeText(std::string_view text) {
    if (text.empty()) {
        sink_.Absent();
    } else {
        sink_.Text(text);
    }
}

void RowExporter::Core(int32_t core) {
    Maybe(core == ALL_CORES ? std::nullopt : std::optional(static_cast<uint32_t>(core)));
}

void RowExporter::WriteDevice(const DeviceFacts& device) {
    sink_.BeginRow(Table::DEVICE);
    sink_.Integer(static_cast<uint64_t>(device.deviceId));
    sink_.Text(device.directory);
    MaybeText(device.jobId);
    sink_.Integer(device.complete ? 1 : 0);
    MaybeText(device.failure);
    MaybeText(fmt::format("{}", fmt::join(device.samplers, ",")));
    MaybeText(device.sampleConfig);
    sink_.EndRow();
}

void RowExporter::OnBegin(const ResultDirectory& result) {
    result_ = &result;
    for (size_t replay = 0; replay < result.replays.size(); ++replay) {
        sink_.BeginRow(Table::REPLAY);
        sink_.Integer(replay);
        MaybeText(result.replays[replay].started);
        MaybeText(result.replays[replay].ended);
        sink_.EndRow();
    }
    for (const DeviceFacts& device : result.devices) {
        WriteDevice(device);
    }
}

void RowExporter::OnSystemCpu(const SystemCpuRow& row) {
    sink_.BeginRow(Table::SYSTEM_CPU);
    sink_.Integer(static_cast<uint64_t>(row.deviceId));
    sink_.Integer(row.timeNs);
    Core(row.core);
    Maybe(row.use.has_value() ? std::optional(row.use->intervalNs) : std::nullopt);
    for (size_t state = 0; state < CPU_STATE_COUNT; ++state) {
        if (row.use.has_value()) {
            sink_.Real(row.use->percent[state]);
        } else {
            sink_.Absent();
        }
    }
    for (const uint64_t ticks : row.ticks) {
        sink_.Integer(ticks);
    }
    sink_.EndRow();
}

void RowExporter::OnMemoryKey(const MemoryKeyRow& row) {
    memoryNames_.resize(row.key);
    memoryNames_.emplace_back(row.name);
    sink_.BeginRow(Table::MEMORY_KEY);
    sink_.Integer(static_cast<uint64_t>(row.deviceId));
    sink_.Integer(row.key);
    sink_.Text(row.name);
    MaybeText(row.isBytes ? "bytes" : "");
    sink_.EndRow();
}

void RowExporter::OnMemory(const MemoryRow& row) {
    sink_.BeginRow(Table::MEMORY);
    sink_.Integer(static_cast<uint64_t>(row.deviceId));
    sink_.Integer(row.timeNs);
    sink_.Key(row.key, memoryNames_[row.key]);
    sink_.Integer(row.value);
    sink_.EndRow();
}

void RowExporter::OnProcess(const ProcessRow& row) {
    sink_.BeginRow(Table::PROCESS);
    sink_.Integer(row.process);
    sink_.Integer(static_cast<uint64_t>(row.deviceId));
    sink_.Integer(row.pid);
    Maybe(row.startTicks);
    Maybe(row.parentPid);
    MaybeText(row.name);
    sink_.Integer(row.firstNs);
    sink_.Integer(row.lastNs);
    sink_.EndRow();
}

void RowExporter::OnProcessCpu(const ProcessCpuRow& row) {
    sink_.BeginRow(Table::PROCESS_CPU);
    sink_.Integer(row.process);
    sink_.Integer(row.timeNs);
    if (row.use.has_value()) {
        sink_.Integer(row.use->intervalNs);
        sink_.Integer(row.use->userNs);
        sink_.Integer(row.use->systemNs);
        sink_.Real(PERCENT * static_cast<double>(row.use->userNs + row.use->systemNs) /
                   static_cast<double>(row.use->intervalNs));
    } else {
        for (int cell = 0; cell < 4; ++cell) {
            sink_.Absent();
        }
    }
    sink_.Integer(row.userTicks);
    sink_.Integer(row.systemTicks);
    sink_.Integer(row.threads);
    sink_.Text({&row.state, 1});
    sink_.EndRow();
}

void RowExporter::OnProcessMemory(const ProcessMemoryRow& row) {
    sink_.BeginRow(Table::PROCESS_MEMORY);
    for (const uint64_t number : {row.process, row.timeNs, row.sizeBytes, row.residentBytes,
                                  row.sharedBytes, row.textBytes, row.dataBytes}) {
        sink_.Integer(number);
    }
    sink_.EndRow();
}

void RowExporter::OnProfileSample(const ProfileSampleRow& row) {
    const uint64_t stack = stacks_.NumberOf(row.stack);
    folded_.clear();
    AppendFoldedStack(row.stack, folded_);
    sink_.BeginRow(Table::PROFILE_SAMPLE);
    sink_.Integer(static_cast<uint64_t>(row.deviceId));
    sink_.Integer(row.timeNs);
    Maybe(row.core);
    Maybe(row.pid);
    Maybe(row.threadId);
    sink_.Text(row.command);
    sink_.Text(row.event);
    sink_.Integer(row.period);
    if (stack == 0) {
        sink_.Absent();
    } else {
        sink_.Key(stack, folded_);
    }
    sink_.EndRow();
}

void RowExporter::OnChannel(const ChannelRow& row) {
    sink_.BeginRow(Table::CHANNEL);
    sink_.Integer(row.channel);
    sink_.Integer(static_cast<uint64_t>(row.deviceId));
    Maybe(row.channelId);
    sink_.Text(row.file);
    MaybeText(row.name);
    sink_.Text(ChannelSourceName(row.source));
    sink_.Text(ChannelClockName(row.clock));
    Maybe(row.periodMs == 0 ? std::nullopt : std::optional(row.periodMs));
    sink_.EndRow();
    for (size_t event = 0; event < row.events.size(); ++event) {
        sink_.BeginRow(Table::CHANNEL_EVENT);
        sink_.Integer(row.channel);
        sink_.Integer(event);
        sink_.Text(row.events[event]);
        sink_.EndRow();
    }
}

void RowExporter::OnChannelCount(const ChannelCountRow& row) {
    sink_.BeginRow(Table::CHANNEL_COUNT);
    sink_.Integer(row.channel);
    sink_.Integer(row.timeNs);
    sink_.Integer(row.event);
    Core(row.core);
    sink_.Integer(row.count);
    Maybe(row.intervalNs);
    if (row.intervalNs.has_value()) {
        sink_.Real(static_cast<double>(row.count) * NS_PER_SECOND /
                   static_cast<double>(*row.intervalNs));
    } else {
        sink_.Absent();
    }
    sink_.EndRow();
}

void RowExporter::OnChannelLoss(const ChannelLossRow& row) {
    sink_.BeginRow(Table::CHANNEL_LOSS);
    sink_.Integer(row.channel);
    sink_.Integer(row.timeNs);
    sink_.Integer(row.records);
    sink_.EndRow();
}

void RowExporter::OnChannelRun(const ChannelRunRow& row) {
    sink_.BeginRow(Table::CHANNEL_RUN);
    sink_.Integer(row.channel);
    sink_.Integer(row.first);
    sink_.Integer(row.numbers);
    sink_.EndRow();
}

void RowExporter::OnChunk(const ChunkRow& row) {
    sink_.BeginRow(Table::CHUNK);
    sink_.Integer(static_cast<uint64_t>(row.deviceId));
    sink_.Text(row.file);
    sink_.Integer(row.receivedNs);
    sink_.Integer(row.bytes);
    sink_.EndRow();
}

void RowExporter::OnFile(const FileRow& row) {
    sink_.BeginRow(Table::FILE);
    sink_.Integer(static_cast<uint64_t>(row.deviceId));
    sink_.Text(row.name);
    sink_.Text(FileKindName(row.kind));
    sink_.Integer(row.bytes);
    sink_.Integer(row.records);
    sink_.Integer(row.unreadableRecords);
    sink_.Integer(row.unreadableBytes);
    MaybeText(row.problem);
    sink_.EndRow();
}

void RowExporter::WriteResult(const ReadOutcome& outcome) {
    const auto clock = result_->clock;
    sink_.BeginRow(Table::RESULT);
    sink_.Text(result_->state);
    sink_.Integer(IsWhole(*result_, outcome) ? 1 : 0);
    MaybeText(result_->tool);
    MaybeText(result_->started);
    MaybeText(result_->ended);
    Maybe(result_->askedMs);
    MaybeText(result_->command);
    sink_.Integer(result_->stoppedEarly ? 1 : 0);
    sink_.Integer(result_->pageBytes);
    sink_.Integer(result_->ticksPerSecond);
    sink_.Text("raw_monotonic");
    Maybe(outcome.firstNs);
    Maybe(outcome.lastNs);
    Maybe(clock.has_value() ? std::optional(clock->wallNs) : std::nullopt);
    Maybe(clock.has_value() ? std::optional(clock->rawNs) : std::nullopt);
    sink_.EndRow();
}

void RowExporter::OnEnd(const ReadOutcome& outcome) {
    WriteResult(outcome);
    for (const std::string& problem : outcome.problems) {
        sink_.BeginRow(Table::PROBLEM);
        sink_.Text(problem);
        sink_.EndRow();
    }
    result_ = nullptr;
}

}  // namespace tiv::host
