// What the rows of a result hold before a parser fills them in.
#include "host/result/tables.h"

#include <gtest/gtest.h>

#include "host/result/record_reader.h"

namespace tiv::host {

TEST(Tables, RecordBeginsWithNothingRead) {
    const SampleRecord record;
    EXPECT_EQ(0u, record.index);
    EXPECT_EQ(0u, record.timeNs);
    EXPECT_TRUE(record.data.empty());
}

TEST(Tables, RowsOfTheSystemBeginWithNothingMeasured) {
    const SystemCpuRow cpu;
    EXPECT_EQ(0, cpu.deviceId);
    EXPECT_EQ(0u, cpu.timeNs);
    EXPECT_EQ(ALL_CORES, cpu.core);
    EXPECT_EQ(0u, cpu.ticks[IDLE]);
    EXPECT_FALSE(cpu.use.has_value());
    const MemoryRow memory;
    EXPECT_EQ(0u, memory.timeNs + memory.key + memory.value);
}

TEST(Tables, RowsOfAProcessBeginWithNothingMeasured) {
    const ProcessCpuRow cpu;
    EXPECT_EQ(0u, cpu.process);
    EXPECT_EQ(0u, cpu.timeNs);
    EXPECT_EQ(0u, cpu.userTicks + cpu.systemTicks + cpu.threads);
    EXPECT_EQ('?', cpu.state);
    EXPECT_FALSE(cpu.use.has_value());
    const ProcessMemoryRow memory;
    EXPECT_EQ(0u, memory.process);
    EXPECT_EQ(0u, memory.timeNs);
    EXPECT_EQ(0u, memory.sizeBytes + memory.residentBytes + memory.sharedBytes + memory.textBytes +
                      memory.dataBytes);
}

TEST(Tables, RowsOfAChannelBeginWithNothingCounted) {
    const ChannelCountRow count;
    EXPECT_EQ(0u, count.channel);
    EXPECT_EQ(0u, count.timeNs + count.event + count.count);
    EXPECT_EQ(ALL_CORES, count.core);
    EXPECT_FALSE(count.intervalNs.has_value());
    const ChannelLossRow loss;
    EXPECT_EQ(0u, loss.channel + loss.timeNs + loss.records);
    const ChannelRunRow run;
    EXPECT_EQ(0u, run.channel + run.first + run.numbers);
}

}  // namespace tiv::host
