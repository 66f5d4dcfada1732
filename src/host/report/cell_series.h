// Readings over time, gathered in cells of equal width.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tiv::host {

// A quantity that is known over intervals: a rate between two readings, or a level that held since
// the reading before. Each interval is spread over the cells that it touches, so that nothing is
// lost or counted twice where intervals and cells do not meet.
//
// Cells are BASE_CELL_NS << Shift() wide and lie at multiples of their width on the device's clock:
// series of one shift meet cell by cell. When the readings need more cells than allowed, two become
// one. Memory is bounded by the number of cells. One thread.
class CellSeries {
 public:
    static constexpr uint64_t BASE_CELL_NS = 16'000'000;  // a sixth of the shortest sampling period
    static constexpr size_t MAX_CELLS = 16384;

    // What is known of one cell. Of one that no interval touched, nothing: coveredNs is 0.
    struct Cell {
        double valueNs = 0;  // integral of the value over the covered time
        double coveredNs = 0;
        float least = 0;
        float greatest = 0;
    };

    explicit CellSeries(size_t maxCells = MAX_CELLS) : maxCells_(maxCells) {}

    // `value` held from `fromNs` to `toNs`. An empty or reversed interval counts as the
    // nanosecond behind its end. Values that are no finite number are passed over.
    void Add(uint64_t fromNs, uint64_t toNs, double value);

    // Adds the integrals of another series cell by cell, as of things that happen side by side.
    // What At tells of such a sum is its integral only.
    void AddAll(const CellSeries& other);

    // Makes cells wider, up to `shift`; a lower one changes nothing.
    void Coarsen(unsigned shift);

    [[nodiscard]] bool Empty() const { return cells_.empty(); }
    [[nodiscard]] unsigned Shift() const { return shift_; }
    [[nodiscard]] uint64_t WidthNs() const { return BASE_CELL_NS << shift_; }
    // The cells that are held: [FirstCell(), EndCell()). Both 0 when nothing was added.
    [[nodiscard]] uint64_t FirstCell() const { return first_; }
    [[nodiscard]] uint64_t EndCell() const { return first_ + cells_.size(); }
    // Any cell; one outside of those held is uncovered.
    [[nodiscard]] Cell At(uint64_t cell) const;

    // True when cells hold several readings each, so that least and greatest tell more than the
    // mean does.
    [[nodiscard]] bool Thinned() const;

 private:
    void MakeRoom(uint64_t fromNs, uint64_t toNs);
    void AddToCell(Cell& cell, double coveredNs, double value) const;
    void Double();

    size_t maxCells_;
    unsigned shift_ = 0;
    uint64_t first_ = 0;
    uint64_t intervals_ = 0;
    std::vector<Cell> cells_;
};

}  // namespace tiv::host
