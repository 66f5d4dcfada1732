// Tests of the grid that the plots of a page share.
#include <gtest/gtest.h>

#include <cmath>

#include "host/report/page_grid.h"

namespace tiv::host {
namespace {

constexpr uint64_t CELL = CellSeries::BASE_CELL_NS;

CellSeries SeriesOver(uint64_t firstCell, uint64_t endCell, double value) {
    CellSeries series;
    series.Add(firstCell * CELL, endCell * CELL, value);
    return series;
}

TEST(PageGrid, WithoutSeriesItIsEmpty) {
    PageGrid grid;

    grid.Include(0, CellSeries());
    grid.Fix();

    EXPECT_TRUE(grid.Empty());
    EXPECT_EQ(grid.Cells(), 0u);
}

TEST(PageGrid, BeginsWithTheFirstReadingOfAllAndEndsWithTheLast) {
    PageGrid grid;

    grid.Include(0, SeriesOver(100, 110, 1));
    grid.Include(0, SeriesOver(95, 105, 1));
    grid.Fix();

    EXPECT_EQ(grid.OriginNs(0), 95 * CELL);
    EXPECT_EQ(grid.Cells(), 15u);
    EXPECT_DOUBLE_EQ(grid.Seconds(0, 96 * CELL), 0.016);
    EXPECT_DOUBLE_EQ(grid.Seconds(0, 94 * CELL), -0.016);
}

TEST(PageGrid, CellsAreAsWideAsTheWidestSeries) {
    PageGrid grid;
    CellSeries wide = SeriesOver(0, 64, 1);
    wide.Coarsen(3);

    grid.Include(0, SeriesOver(0, 64, 1));
    grid.Include(0, wide);
    grid.Fix();

    EXPECT_EQ(grid.Cells(), 8u);
    EXPECT_DOUBLE_EQ(grid.CellSeconds(), 0.128);
}

TEST(PageGrid, SeriesThatTogetherAreLongerThanAllowedWidenIt) {
    PageGrid grid;

    grid.Include(0, SeriesOver(0, 10, 1));
    grid.Include(0, SeriesOver(CellSeries::MAX_CELLS, CellSeries::MAX_CELLS + 10, 1));
    grid.Fix();

    EXPECT_EQ(grid.Shift(), 1u);
    EXPECT_LE(grid.Cells(), CellSeries::MAX_CELLS);
}

TEST(PageGrid, DevicesWhoseReadingsOverlapHaveOneZero) {
    PageGrid grid;

    grid.Include(0, SeriesOver(100, 200, 1));
    grid.Include(1, SeriesOver(110, 220, 1));
    grid.Fix();

    EXPECT_TRUE(grid.OneClock());
    EXPECT_EQ(grid.FirstCell(1), 100u);
    EXPECT_EQ(grid.Cells(), 120u);
}

TEST(PageGrid, DevicesWhoseClocksDifferEachBeginAtZero) {
    PageGrid grid;

    grid.Include(0, SeriesOver(100, 200, 1));
    grid.Include(1, SeriesOver(900000, 900050, 1));
    grid.Fix();

    EXPECT_FALSE(grid.OneClock());
    EXPECT_EQ(grid.FirstCell(0), 100u);
    EXPECT_EQ(grid.FirstCell(1), 900000u);
    EXPECT_EQ(grid.Cells(), 100u);
}

TEST(PageGrid, SeriesOfAnOwnClockBeginsAtItsZero) {
    PageGrid grid;

    grid.Include(3, SeriesOver(100, 200, 1));
    grid.Include(PageGrid::OwnClock(3), SeriesOver(5, 20, 1));
    grid.Fix();

    EXPECT_TRUE(grid.OneClock());
    EXPECT_EQ(grid.FirstCell(PageGrid::OwnClock(3)), 0u);
    EXPECT_EQ(grid.OriginNs(3), 100 * CELL);
}

TEST(PageGrid, MeanColumnHasTheMeansAndNoNumberWhereNothingWasMeasured) {
    PageGrid grid;
    CellSeries series = SeriesOver(10, 12, 4);
    series.Add(13 * CELL, 13 * CELL + CELL / 4, 8);
    grid.Include(0, series);
    grid.Fix();

    const std::vector<float> column = MeanColumn(grid, 0, series);

    ASSERT_EQ(column.size(), 4u);
    EXPECT_EQ(column[0], 4);
    EXPECT_TRUE(std::isnan(column[2]));
    EXPECT_EQ(column[3], 8);
}

TEST(PageGrid, SeriesThatIsLongerThanTheGridIsCut) {
    PageGrid grid;
    grid.Include(0, SeriesOver(10, 12, 1));
    grid.Fix();
    CellSeries longer = SeriesOver(8, 3000, 4);

    EXPECT_EQ(MeanColumn(grid, 0, longer), (std::vector<float>{4, 4}));
}

TEST(PageGrid, ShareColumnCountsAPartlyCoveredCellForItsPart) {
    PageGrid grid;
    CellSeries series;
    series.Add(0, CELL / 4, 8);
    grid.Include(0, series);
    grid.Fix();

    EXPECT_EQ(ShareColumn(grid, 0, series), std::vector<float>{2});
}

TEST(PageGrid, OnlyAThinnedSeriesHasLeastAndGreatest) {
    PageGrid grid;
    PageBlock block;
    CellSeries thinned = SeriesOver(0, 1, 1);
    thinned.Add(0, CELL, 3);
    CellSeries plain = SeriesOver(0, 1, 1);
    grid.Include(0, thinned);
    grid.Fix();
    nlohmann::ordered_json withBand;
    nlohmann::ordered_json without;

    AddColumns(grid, 0, thinned, block, withBand);
    AddColumns(grid, 0, plain, block, without);

    EXPECT_TRUE(withBand.contains("min") && withBand.contains("max"));
    EXPECT_FALSE(without.contains("min") || without.contains("max"));
}

}  // namespace
}  // namespace tiv::host
