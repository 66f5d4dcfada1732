// Laying of series on one grid.
#include "host/report/page_grid.h"

#include <algorithm>
#include <cmath>

namespace tiv::host {

namespace {

constexpr double NS_PER_SECOND = 1e9;

// One entry per cell of the grid: what `pick` takes from a covered cell, else NaN.
template <class Pick>
std::vector<float> Column(const PageGrid& grid, int deviceId, const CellSeries& series, Pick pick) {
    std::vector<float> column(grid.Cells(), std::nanf(""));
    const uint64_t first = grid.FirstCell(deviceId);
    for (uint64_t cell = std::max(first, series.FirstCell()); cell < series.EndCell(); ++cell) {
        const CellSeries::Cell known = series.At(cell);
        if (known.coveredNs > 0 && cell - first < column.size()) {
            column[cell - first] = static_cast<float>(pick(known));
        }
    }
    return column;
}

}  // namespace

void PageGrid::Include(int deviceId, const CellSeries& series) {
    if (series.Empty()) {
        return;
    }
    const uint64_t first = deviceId < 0 ? 0 : series.FirstCell() * series.WidthNs();
    const uint64_t end = series.EndCell() * series.WidthNs();
    const auto [found, isNew] = spans_.try_emplace(deviceId, Span{first, end});
    found->second.firstNs = std::min(found->second.firstNs, first);
    found->second.endNs = std::max(found->second.endNs, end);
    shift_ = std::max(shift_, series.Shift());
}

void PageGrid::Fix() {
    uint64_t latestFirst = 0;
    uint64_t earliestFirst = UINT64_MAX;
    uint64_t earliestEnd = UINT64_MAX;
    for (const auto& [device, span] : spans_) {
        if (device >= 0) {
            latestFirst = std::max(latestFirst, span.firstNs);
            earliestFirst = std::min(earliestFirst, span.firstNs);
            earliestEnd = std::min(earliestEnd, span.endNs);
        }
    }
    oneClock_ = latestFirst < earliestEnd;
    // Series that begin at different times may need wider cells together than each alone.
    do {
        const uint64_t width = CellSeries::BASE_CELL_NS << shift_;
        cells_ = 0;
        for (const auto& [device, span] : spans_) {
            firstCells_[device] = (oneClock_ && device >= 0 ? earliestFirst : span.firstNs) / width;
            cells_ = std::max(cells_, (span.endNs - 1) / width + 1 - firstCells_[device]);
        }
        shift_ += cells_ > CellSeries::MAX_CELLS ? 1 : 0;
    } while (cells_ > CellSeries::MAX_CELLS);
}

double PageGrid::CellSeconds() const {
    return static_cast<double>(CellSeries::BASE_CELL_NS << shift_) / NS_PER_SECOND;
}

uint64_t PageGrid::FirstCell(int deviceId) const {
    const auto found = firstCells_.find(deviceId);
    return found == firstCells_.end() ? 0 : found->second;
}

uint64_t PageGrid::OriginNs(int deviceId) const {
    return FirstCell(deviceId) * (CellSeries::BASE_CELL_NS << shift_);
}

double PageGrid::Seconds(int deviceId, uint64_t timeNs) const {
    const uint64_t origin = OriginNs(deviceId);
    return timeNs >= origin ? static_cast<double>(timeNs - origin) / NS_PER_SECOND
                            : -static_cast<double>(origin - timeNs) / NS_PER_SECOND;
}

std::vector<float> MeanColumn(const PageGrid& grid, int deviceId, CellSeries& series) {
    series.Coarsen(grid.Shift());
    return Column(grid, deviceId, series,
                  [](const CellSeries::Cell& cell) { return cell.valueNs / cell.coveredNs; });
}

std::vector<float> ShareColumn(const PageGrid& grid, int deviceId, CellSeries& series) {
    series.Coarsen(grid.Shift());
    const auto width = static_cast<double>(series.WidthNs());
    return Column(grid, deviceId, series,
                  [width](const CellSeries::Cell& cell) { return cell.valueNs / width; });
}

void AddColumns(const PageGrid& grid, int deviceId, CellSeries& series, PageBlock& block,
                nlohmann::ordered_json& entry) {
    entry["mean"] = block.AddFloats(MeanColumn(grid, deviceId, series));
    if (series.Thinned()) {
        entry["min"] = block.AddFloats(Column(
            grid, deviceId, series, [](const CellSeries::Cell& cell) { return cell.least; }));
        entry["max"] = block.AddFloats(Column(
            grid, deviceId, series, [](const CellSeries::Cell& cell) { return cell.greatest; }));
    }
}

}  // namespace tiv::host
