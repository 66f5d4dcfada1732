// Gathering of readings in cells.
#include "host/report/cell_series.h"

#include <algorithm>
#include <cmath>

namespace tiv::host {

void CellSeries::AddToCell(Cell& cell, double coveredNs, double value) const {
    const auto shown = static_cast<float>(value);
    cell.least = cell.coveredNs > 0 ? std::min(cell.least, shown) : shown;
    cell.greatest = cell.coveredNs > 0 ? std::max(cell.greatest, shown) : shown;
    cell.valueNs += value * coveredNs;
    cell.coveredNs += coveredNs;
}

void CellSeries::Add(uint64_t fromNs, uint64_t toNs, double value) {
    if (!std::isfinite(value)) {
        return;
    }
    if (fromNs >= toNs) {
        fromNs = toNs;
        toNs = fromNs + 1;
    }
    MakeRoom(fromNs, toNs);
    ++intervals_;
    const uint64_t width = WidthNs();
    for (uint64_t cell = fromNs / width; cell * width < toNs; ++cell) {
        const uint64_t begin = std::max(fromNs, cell * width);
        const uint64_t end = std::min(toNs, (cell + 1) * width);
        AddToCell(cells_[cell - first_], static_cast<double>(end - begin), value);
    }
}

void CellSeries::AddAll(const CellSeries& other) {
    if (other.Empty()) {
        return;
    }
    Coarsen(other.shift_);
    MakeRoom(other.first_ * other.WidthNs(), other.EndCell() * other.WidthNs());
    const unsigned wider = shift_ - other.shift_;
    for (uint64_t cell = other.first_; cell < other.EndCell(); ++cell) {
        const Cell& added = other.cells_[cell - other.first_];
        Cell& target = cells_[(cell >> wider) - first_];
        target.valueNs += added.valueNs;
        target.coveredNs += added.coveredNs;
    }
}

// Widens the cells until those held and those of the interval fit, and makes the latter exist.
void CellSeries::MakeRoom(uint64_t fromNs, uint64_t toNs) {
    while (true) {
        const uint64_t from = fromNs / WidthNs();
        const uint64_t end = (toNs - 1) / WidthNs() + 1;
        const uint64_t first = cells_.empty() ? from : std::min(first_, from);
        const uint64_t last = cells_.empty() ? end : std::max(EndCell(), end);
        if (last - first <= maxCells_) {
            if (!cells_.empty() && first < first_) {
                cells_.insert(cells_.begin(), first_ - first, Cell());
            }
            first_ = first;
            cells_.resize(last - first);
            return;
        }
        Double();
    }
}

void CellSeries::Double() {
    if (!cells_.empty()) {
        std::vector<Cell> wide(((EndCell() - 1) >> 1) - (first_ >> 1) + 1);
        for (size_t i = 0; i < cells_.size(); ++i) {
            const Cell& cell = cells_[i];
            Cell& target = wide[((first_ + i) >> 1) - (first_ >> 1)];
            if (cell.coveredNs > 0) {
                const bool known = target.coveredNs > 0;
                target.least = known ? std::min(target.least, cell.least) : cell.least;
                target.greatest = known ? std::max(target.greatest, cell.greatest) : cell.greatest;
                target.valueNs += cell.valueNs;
                target.coveredNs += cell.coveredNs;
            }
        }
        cells_ = std::move(wide);
        first_ >>= 1;
    }
    ++shift_;
}

void CellSeries::Coarsen(unsigned shift) {
    while (shift_ < shift) {
        Double();
    }
}

CellSeries::Cell CellSeries::At(uint64_t cell) const {
    return cell >= first_ && cell < EndCell() ? cells_[cell - first_] : Cell();
}

bool CellSeries::Thinned() const {
    const auto covered = std::count_if(cells_.begin(), cells_.end(),
                                       [](const Cell& cell) { return cell.coveredNs > 0; });
    return intervals_ > static_cast<uint64_t>(covered);
}

}  // namespace tiv::host
