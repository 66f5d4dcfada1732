// Makes the data of a report page out of a result's rows.
#pragma once

#include <string>
#include <vector>

#include "host/report/arrival_part.h"
#include "host/report/channel_part.h"
#include "host/report/file_part.h"
#include "host/report/memory_part.h"
#include "host/report/process_part.h"
#include "host/report/profile_part.h"
#include "host/report/system_part.h"
#include "host/result/result_directory.h"
#include "host/result/tables.h"

namespace tiv::host {

// Takes every row once and thins as it goes: memory does not grow with the result. One thread.
class ReportModel : public TableVisitor {
 public:
    void OnBegin(const ResultDirectory& result) override {
        result_ = result;
        arrivals_.SetOneClock(result.clock.has_value());
    }
    void OnSystemCpu(const SystemCpuRow& row) override { system_.Take(row); }
    void OnMemoryKey(const MemoryKeyRow& row) override { memory_.Take(row); }
    void OnMemory(const MemoryRow& row) override { memory_.Take(row); }
    void OnProcessCpu(const ProcessCpuRow& row) override { processes_.Take(row); }
    void OnProcessMemory(const ProcessMemoryRow& row) override { processes_.Take(row); }
    void OnProcess(const ProcessRow& row) override { processes_.Take(row); }
    void OnProfileSample(const ProfileSampleRow& row) override { profile_.Take(row); }
    void OnChannel(const ChannelRow& row) override { channels_.Take(row); }
    void OnChannelCount(const ChannelCountRow& row) override { channels_.Take(row); }
    void OnChannelLoss(const ChannelLossRow& row) override { channels_.Take(row); }
    void OnChannelRun(const ChannelRunRow& row) override { channels_.Take(row); }
    void OnChunk(const ChunkRow& row) override { arrivals_.Take(row); }
    void OnFile(const FileRow& row) override { files_.Take(row); }
    void OnEnd(const ReadOutcome& outcome) override { outcome_ = outcome; }

    // The data of the page, as PageBlock::Encode writes it. Once, behind OnEnd.
    [[nodiscard]] std::string Encode();

 private:
    using Json = nlohmann::ordered_json;

    [[nodiscard]] Json Facts(const PageGrid& grid) const;
    void AddDeviceFacts(Json& facts) const;
    void AddClockFacts(Json& facts, const PageGrid& grid) const;
    [[nodiscard]] std::string StateText() const;

    ResultDirectory result_;
    ReadOutcome outcome_;
    SystemPart system_;
    MemoryPart memory_;
    ProcessPart processes_;
    ChannelPart channels_;
    ArrivalPart arrivals_;
    ProfilePart profile_;
    FilePart files_;
};

}  // namespace tiv::host
