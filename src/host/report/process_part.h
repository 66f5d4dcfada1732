// The processes on a page: the busiest and the largest over time, and all in a table.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/report/page_part.h"
#include "host/result/tables.h"

namespace tiv::host {

// Keeps the course of a few processes and the figures of many.
//
// A process is judged when its row comes, which is behind all of its readings: by its CPU time and
// by its largest resident memory. Of those that are not among the first, figures stay, and of very
// many processes only those with the greatest figures: memory does not grow with the result. The
// CPU of all together is kept as a sum. One thread.
class ProcessPart : public PagePart {
 public:
    static constexpr size_t SHOWN = 10;            // in each plot
    static constexpr size_t MOST_IN_TABLE = 4000;  // by either measure

    void Take(const ProcessCpuRow& row);
    void Take(const ProcessMemoryRow& row);
    void Take(const ProcessRow& row);

    void IncludeIn(PageGrid& grid) const override;
    void Write(PageContext& context) override;

    [[nodiscard]] uint64_t Processes() const { return processes_; }

 private:
    struct Figures {
        int deviceId = 0;
        uint32_t pid = 0;
        std::optional<uint32_t> parentPid;
        std::string name;
        uint64_t firstNs = 0;
        uint64_t lastNs = 0;
        uint64_t cpuNs = 0;
        uint64_t measuredNs = 0;  // that the CPU time belongs to
        double busiest = 0;       // percent of a core
        uint64_t threads = 0;
        bool hasCpu = false;
        uint64_t residentBytes = 0;  // largest
        uint64_t lastResidentBytes = 0;
        bool hasMemory = false;
    };
    struct Course {
        Figures figures;
        CellSeries cpu;
        CellSeries memory;
        std::optional<uint64_t> previousMemoryNs;
        uint64_t shortestMemoryNs = UINT64_MAX;
    };
    // The courses with the greatest values of one measure.
    struct Ranking {
        std::vector<std::pair<Figures, CellSeries>> best;  // greatest first, SHOWN at most
        void Offer(const Figures& figures, const CellSeries& series,
                   uint64_t (*measure)(const Figures&));
    };

    void Keep(const Figures& figures);
    void PruneTable();
    void WriteCpu(PageContext& context);
    void WriteMemory(PageContext& context);
    void WriteTable(PageContext& context);
    nlohmann::ordered_json OthersOf(PageContext& context, const std::vector<float>& shown);

    std::unordered_map<uint64_t, Course> open_;  // their rows are still to come
    Ranking byCpu_;
    Ranking byMemory_;
    std::vector<Figures> table_;
    std::map<int, CellSeries> allCpu_;  // by device
    uint64_t processes_ = 0;
};

}  // namespace tiv::host
