// The cells that all time plots of a page share.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <vector>

#include "host/report/cell_series.h"
#include "host/report/page_block.h"

namespace tiv::host {

// Lays the series of a page on one grid that begins at 0 seconds.
//
// Devices whose readings overlap in time have one clock, or clocks that agree; then 0 is the first
// reading of all. Otherwise each device's own first reading is 0. A series whose times count from
// its own start goes under OwnClock of its device and begins at 0, too. Use: Include every series,
// Fix, then the rest. One thread.
class PageGrid {
 public:
    // What stands for the device of a series whose clock is its own.
    [[nodiscard]] static int OwnClock(int deviceId) { return -1 - deviceId; }

    void Include(int deviceId, const CellSeries& series);

    // Settles the grid: cells are as wide as the widest that was included.
    void Fix();

    [[nodiscard]] bool Empty() const { return spans_.empty(); }
    [[nodiscard]] unsigned Shift() const { return shift_; }
    [[nodiscard]] uint64_t Cells() const { return cells_; }
    [[nodiscard]] double CellSeconds() const;
    // The device's clock at 0 seconds.
    [[nodiscard]] uint64_t OriginNs(int deviceId) const;
    // True when every device has the same 0.
    [[nodiscard]] bool OneClock() const { return oneClock_; }
    // A time of the device's clock in seconds on this grid.
    [[nodiscard]] double Seconds(int deviceId, uint64_t timeNs) const;

    // The first cell of the device, counted as CellSeries counts.
    [[nodiscard]] uint64_t FirstCell(int deviceId) const;

 private:
    struct Span {
        uint64_t firstNs;
        uint64_t endNs;
    };

    std::map<int, Span> spans_;
    std::map<int, uint64_t> firstCells_;
    unsigned shift_ = 0;
    uint64_t cells_ = 0;
    bool oneClock_ = true;
};

// What a series contributes to a chart: its mean in each cell of the grid, NaN where nothing was
// measured. `series` is made as wide as the grid's cells.
[[nodiscard]] std::vector<float> MeanColumn(const PageGrid& grid, int deviceId, CellSeries& series);

// The same of the integral over each cell by the cell's width: what a series has in a cell that it
// covers in part counts for that part only, so that such columns may be added.
[[nodiscard]] std::vector<float> ShareColumn(const PageGrid& grid, int deviceId,
                                             CellSeries& series);

// Adds the columns "mean" and, when the series is thinned, "min" and "max" to `entry`.
void AddColumns(const PageGrid& grid, int deviceId, CellSeries& series, PageBlock& block,
                nlohmann::ordered_json& entry);

}  // namespace tiv::host
