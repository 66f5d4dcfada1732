// Turns the rows of a result into cells of the export's tables.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "host/export/exporter.h"
#include "host/export/stack_table.h"
#include "host/export/table_specs.h"

namespace tiv::host {

// Takes the cells of one row after another, each row with one cell for each column of its table.
class CellSink {
 public:
    CellSink() = default;
    virtual ~CellSink() = default;
    CellSink(const CellSink&) = delete;
    CellSink& operator=(const CellSink&) = delete;

    virtual void BeginRow(Table table) = 0;
    virtual void Integer(uint64_t value) = 0;
    virtual void Real(double value) = 0;
    virtual void Text(std::string_view text) = 0;
    // A value that was not measured or does not exist.
    virtual void Absent() = 0;
    // The number of a row of another table, or its text where a reader would rather see that.
    virtual void Key(uint64_t number, std::string_view text) = 0;
    virtual void EndRow() = 0;
};

// What the exports into tables share: which value goes into which cell.
class RowExporter : public Exporter {
 public:
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
    void OnChannelRun(const ChannelRunRow& row) override;
    void OnChunk(const ChunkRow& row) override;
    void OnFile(const FileRow& row) override;
    void OnEnd(const ReadOutcome& outcome) override;

 protected:
    // `sink` outlives the exporter's last row.
    explicit RowExporter(CellSink& sink);

 private:
    template <class Number>
    void Maybe(const std::optional<Number>& value);
    void MaybeText(std::string_view text);
    void Core(int32_t core);
    void WriteDevice(const DeviceFacts& device);
    void WriteResult(const ReadOutcome& outcome);

    CellSink& sink_;
    const ResultDirectory* result_ = nullptr;  // from OnBegin to OnEnd
    StackTable stacks_;
    std::vector<std::string> memoryNames_;  // by key, of the device in hand
    std::string folded_;
};

}  // namespace tiv::host
