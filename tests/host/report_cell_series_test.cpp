// Tests of the gathering of readings in cells.
#include <gtest/gtest.h>

#include <cmath>

#include "host/report/cell_series.h"

namespace tiv::host {
namespace {

constexpr uint64_t CELL = CellSeries::BASE_CELL_NS;

double Integral(const CellSeries& series) {
    double sum = 0;
    for (uint64_t cell = series.FirstCell(); cell < series.EndCell(); ++cell) {
        sum += series.At(cell).valueNs;
    }
    return sum;
}

TEST(CellSeries, IntervalIsSpreadOverTheCellsThatItTouches) {
    CellSeries series;

    series.Add(10 * CELL + CELL / 2, 12 * CELL, 8);

    EXPECT_EQ(series.FirstCell(), 10u);
    EXPECT_EQ(series.EndCell(), 12u);
    EXPECT_DOUBLE_EQ(series.At(10).coveredNs, CELL / 2);
    EXPECT_DOUBLE_EQ(series.At(10).valueNs, 8.0 * (CELL / 2));
    EXPECT_DOUBLE_EQ(series.At(11).coveredNs, CELL);
}

TEST(CellSeries, CellThatNoIntervalTouchedIsUncovered) {
    CellSeries series;

    series.Add(0, CELL, 1);
    series.Add(5 * CELL, 6 * CELL, 1);

    EXPECT_EQ(series.At(3).coveredNs, 0);
    EXPECT_EQ(series.At(100).coveredNs, 0);
    EXPECT_FALSE(series.Thinned());
}

TEST(CellSeries, IntervalEndingAtACellsBorderLeavesTheNextAlone) {
    CellSeries series;

    series.Add(0, 2 * CELL, 1);

    EXPECT_EQ(series.EndCell(), 2u);
}

TEST(CellSeries, EmptyIntervalIsTheNanosecondBehindIt) {
    CellSeries series;

    series.Add(3 * CELL, 3 * CELL, 5);
    series.Add(0, 0, 6);

    EXPECT_DOUBLE_EQ(series.At(3).coveredNs, 1);
    EXPECT_DOUBLE_EQ(series.At(3).valueNs, 5);
    EXPECT_DOUBLE_EQ(series.At(0).valueNs, 6);
}

TEST(CellSeries, MoreReadingsThanCellsWidenThemAndKeepTheIntegral) {
    CellSeries series(64);

    for (uint64_t i = 0; i < 1000; ++i) {
        series.Add(i * CELL, (i + 1) * CELL, static_cast<double>(i % 7));
    }

    EXPECT_EQ(series.Shift(), 4u);
    EXPECT_LE(series.EndCell() - series.FirstCell(), 64u);
    EXPECT_NEAR(Integral(series), 2997.0 * CELL, 1.0);
    EXPECT_TRUE(series.Thinned());
}

TEST(CellSeries, WidenedCellKeepsLeastAndGreatest) {
    CellSeries series;
    series.Add(0, CELL, 4);
    series.Add(CELL, 2 * CELL, 100);
    series.Add(2 * CELL, 3 * CELL, -2);
    series.Add(3 * CELL, 4 * CELL, 10);

    series.Coarsen(2);

    EXPECT_EQ(series.At(0).least, -2);
    EXPECT_EQ(series.At(0).greatest, 100);
    EXPECT_DOUBLE_EQ(series.At(0).valueNs, 112.0 * CELL);
}

TEST(CellSeries, UncoveredCellHasNoPartInAWidenedOne) {
    CellSeries series;
    series.Add(4 * CELL, 5 * CELL, 4);
    series.Add(7 * CELL, 8 * CELL, -10);

    series.Coarsen(1);

    EXPECT_EQ(series.At(2).least, 4);
    EXPECT_EQ(series.At(3).greatest, -10);
    EXPECT_EQ(series.At(1).coveredNs, 0) << "in front of the first";
}

TEST(CellSeries, EmptySeriesIsWidenedForWhatComes) {
    CellSeries series;
    series.Coarsen(3);
    series.Add(8 * CELL, 16 * CELL, 5);

    EXPECT_EQ(series.Shift(), 3u);
    EXPECT_EQ(series.FirstCell(), 1u);
    EXPECT_DOUBLE_EQ(series.At(1).valueNs, 5.0 * 8 * CELL);
}

TEST(CellSeries, ReadingsFarApartStayWithinTheBound) {
    CellSeries series(64);

    series.Add(0, CELL, 1);
    series.Add((1ull << 63) - 1, 1ull << 63, 2);

    EXPECT_LE(series.EndCell() - series.FirstCell(), 64u);
    EXPECT_DOUBLE_EQ(Integral(series), 1.0 * CELL + 2);
}

TEST(CellSeries, EarlierReadingBehindALaterOneFindsItsCell) {
    CellSeries series;

    series.Add(9 * CELL, 10 * CELL, 9);
    series.Add(2 * CELL, 3 * CELL, 2);

    EXPECT_EQ(series.FirstCell(), 2u);
    EXPECT_DOUBLE_EQ(series.At(2).valueNs, 2.0 * CELL);
    EXPECT_DOUBLE_EQ(series.At(9).valueNs, 9.0 * CELL);
}

TEST(CellSeries, WhatIsNoNumberIsPassedOver) {
    CellSeries series;

    series.Add(0, CELL, std::nan(""));
    series.Add(0, CELL, INFINITY);

    EXPECT_TRUE(series.Empty());
}

TEST(CellSeries, SumOfSeriesOfDifferentWidthsIsTheSumOfTheirIntegrals) {
    CellSeries fine;
    fine.Add(0, 8 * CELL, 3);
    CellSeries wide;
    wide.Add(4 * CELL, 12 * CELL, 5);
    wide.Coarsen(2);

    CellSeries sum;
    sum.AddAll(fine);
    sum.AddAll(wide);
    sum.AddAll(CellSeries());

    EXPECT_EQ(sum.Shift(), 2u);
    EXPECT_DOUBLE_EQ(sum.At(0).valueNs, 12.0 * CELL);
    EXPECT_DOUBLE_EQ(sum.At(1).valueNs, 32.0 * CELL);
    EXPECT_DOUBLE_EQ(sum.At(2).valueNs, 20.0 * CELL);
}

}  // namespace
}  // namespace tiv::host
