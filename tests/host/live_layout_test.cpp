// What the live view looks like on screens of several sizes.
#include <gtest/gtest.h>

#include <algorithm>

#include "host/live/live_layout.h"
#include "host/live/live_view.h"

namespace tiv::test {
namespace {

using host::Charset;
using host::LiveSnapshot;
using host::ScreenSize;

std::vector<std::string> Rows(const LiveSnapshot& snapshot, ScreenSize size = {80, 24},
                              Charset charset = Charset::ASCII) {
    std::vector<std::string> rows;
    for (const host::ScreenLine& line : host::LayOut(snapshot, size, charset)) {
        rows.push_back(line.Plain());
    }
    return rows;
}

// The first row that begins with `start`, blanks in front left out.
std::string RowOf(const std::vector<std::string>& rows, const std::string& start) {
    for (const std::string& row : rows) {
        const size_t first = row.find_first_not_of(' ');
        if (first != std::string::npos && row.compare(first, start.size(), start) == 0) {
            return row;
        }
    }
    return "no row begins with " + start;
}

host::LiveCore Core(int32_t number, double user, double idle) {
    host::LiveCore core;
    core.core = number;
    core.percent.emplace();
    core.percent->fill(0);
    (*core.percent)[host::USER] = user;
    (*core.percent)[host::IDLE] = idle;
    core.busyPercent = {0, 50, 100};
    return core;
}

LiveSnapshot Empty() {
    LiveSnapshot snapshot;
    snapshot.title = "tivctl top";
    snapshot.phase = "live";
    snapshot.elapsed = std::chrono::milliseconds(1500);
    snapshot.samplesCpu = snapshot.samplesMemory = snapshot.samplesProcesses = true;
    return snapshot;
}

LiveSnapshot Full() {
    LiveSnapshot snapshot = Empty();
    snapshot.devices = {3};
    snapshot.bytes = 1500000;
    snapshot.bytesPerSecond = 2000;
    snapshot.cores = {Core(host::ALL_CORES, 50, 50), Core(0, 100, 0), Core(1, 0, 100)};
    snapshot.cpuBehindSeconds = 0.42;
    snapshot.memory.totalBytes = 8000000000;
    snapshot.memory.availableBytes = 6000000000;
    host::LiveProcess process;
    process.pid = 4711;
    process.name = "worker";
    process.state = 'R';
    process.userPercent = 150;
    process.systemPercent = 0.5;
    process.residentBytes = 5000000;
    process.threads = 12;
    snapshot.processes = {process};
    host::LiveStream channel;
    channel.deviceId = 3;
    channel.isChannel = true;
    channel.name = "llc.data";
    channel.source = "software events";
    channel.bytesPerSecond = 3600;
    channel.bytes = 36000;
    channel.chunks = 7;
    channel.events = {{"page-faults", 12345}, {"switches", std::nullopt}};
    snapshot.streams = {channel};
    snapshot.queue.waiting = 5;
    return snapshot;
}

TEST(LiveLayout, TitleTellsDeviceTimeAndRate) {
    EXPECT_EQ("tivctl top  device 3  live 1.5s  1.5 MB  2.0 kB/s", Rows(Full())[0]);
    LiveSnapshot collecting = Full();
    collecting.total = std::chrono::seconds(60);
    collecting.devices = {3, 4};
    EXPECT_EQ("tivctl top  devices 3,4  live 1.5s of 1m00s  1.5 MB  2.0 kB/s", Rows(collecting)[0]);
}

TEST(LiveLayout, LongNameAndLongRateOfAStreamKeepABlankBetweenThem) {
    LiveSnapshot snapshot = Full();
    snapshot.streams[0].name = "a name of a channel that fills its column";
    snapshot.streams[0].bytesPerSecond = 1e18;

    const std::string row = RowOf(Rows(snapshot), "3 a name");
    EXPECT_EQ(25u, row.find(" 1000000.0 TB/s")) << row;
}

TEST(LiveLayout, EachCoreHasItsSharesAndItsHistory) {
    const auto rows = Rows(Full());
    EXPECT_EQ("all       50.0%   50.0%    0.0%    0.0%    0.0%  _=#", RowOf(rows, "all"));
    EXPECT_EQ("cpu0     100.0%  100.0%    0.0%    0.0%    0.0%  _=#", RowOf(rows, "cpu0"));
    EXPECT_EQ("cpu1       0.0%    0.0%    0.0%    0.0%    0.0%  _=#", RowOf(rows, "cpu1"));
    EXPECT_NE(std::string::npos, RowOf(rows, "CPU").find("newest 0.4s ago"));
}

TEST(LiveLayout, WhatWasNotMeasuredIsADashAndNeverZero) {
    const auto rows = Rows(Empty());
    EXPECT_EQ("all           -       -       -       -       -", RowOf(rows, "all"));
    EXPECT_EQ("MEMORY        -  - used of -, - available                       waiting for data",
              RowOf(rows, "MEMORY"));
    EXPECT_NE(std::string::npos, RowOf(rows, "PROCESSES").find("waiting for data"));
    EXPECT_EQ("tivctl top  live 1.5s  0 B  -", rows[0]);

    LiveSnapshot snapshot = Empty();
    snapshot.processes.resize(1);
    EXPECT_EQ("0 -       -      -      -         -         -       -  -",
              RowOf(Rows(snapshot), "0").substr(7));
}

TEST(LiveLayout, MachineWithoutSwapIsToldSo) {
    LiveSnapshot snapshot = Full();
    snapshot.memory.swapFreeBytes = snapshot.memory.swapTotalBytes = 0;
    EXPECT_EQ("cached -, free -, no swap", RowOf(Rows(snapshot), "cached").substr(17));
    snapshot.memory.swapTotalBytes = 1000;
    EXPECT_EQ("cached -, free -, swap 0 B free of 1.0 kB",
              RowOf(Rows(snapshot), "cached").substr(17));
}

TEST(LiveLayout, ShareIsColouredByItsHeight) {
    const auto colour = [](double busy) {
        LiveSnapshot snapshot = Empty();
        snapshot.cores = {Core(host::ALL_CORES, busy, 100 - busy)};
        return host::LayOut(snapshot, {80, 24}, Charset::ASCII).at(2).Painted(true);
    };

    EXPECT_NE(std::string::npos, colour(59.9).find("\033[32m59.9%"));
    EXPECT_NE(std::string::npos, colour(60).find("\033[33m60.0%"));
    EXPECT_NE(std::string::npos, colour(84.9).find("\033[33m84.9%"));
    EXPECT_NE(std::string::npos, colour(85).find("\033[1;31m85.0%"));
}

TEST(LiveLayout, MemoryWithoutATotalOrWithMoreAvailableHasNoShare) {
    const auto row = [](uint64_t total, uint64_t available) {
        LiveSnapshot snapshot = Empty();
        snapshot.memory.totalBytes = total;
        snapshot.memory.availableBytes = available;
        return RowOf(Rows(snapshot), "MEMORY");
    };

    EXPECT_EQ(0u, row(0, 0).find("MEMORY        -  - used of")) << row(0, 0);
    EXPECT_EQ(0u, row(1000, 1001).find("MEMORY        -  - used of"));
    EXPECT_EQ(0u, row(1000, 1000).find("MEMORY     0.0%  0 B used of"));
}

TEST(LiveLayout, ProcessHasItsNumbersInColumns) {
    const auto rows = Rows(Full());
    EXPECT_EQ("    4711 R   150.5  150.0    0.5    5.0 MB         -      12  worker",
              RowOf(rows, "4711"));
    EXPECT_EQ("     PID S    CPU%   user system    memory      size threads  NAME",
              RowOf(rows, "PID"));
    EXPECT_EQ(0u, RowOf(rows, "PROCESSES").find("PROCESSES  1, 1 running"));
}

TEST(LiveLayout, HeadOfTheOrderStandsOut) {
    LiveSnapshot snapshot = Full();
    for (const auto& [order, head] : {std::pair(host::ProcessOrder::CPU, "CPU%"),
                                      std::pair(host::ProcessOrder::MEMORY, "memory"),
                                      std::pair(host::ProcessOrder::PID, "PID")}) {
        snapshot.order = order;
        std::string painted;
        for (const host::ScreenLine& line : host::LayOut(snapshot, {80, 24}, Charset::ASCII)) {
            painted += line.Painted(true);
        }
        const size_t reverse = painted.find("\033[7m");
        ASSERT_NE(std::string::npos, reverse) << head;
        EXPECT_EQ(painted.find(head, reverse), painted.find_first_not_of(' ', reverse + 4)) << head;
        EXPECT_EQ(std::string::npos, painted.find("\033[7m", reverse + 1)) << head;
    }
}

TEST(LiveLayout, ChannelHasItsRateAndThoseOfItsEvents) {
    const auto rows = Rows(Full());
    EXPECT_EQ("3 llc.data                   3.6 kB/s   36.0 kB       7  software events",
              RowOf(rows, "3 llc"));
    EXPECT_EQ("    page-faults 12.3k/s  switches -", RowOf(rows, "page-faults"));
}

TEST(LiveLayout, ChannelThatSendsNothingBeforeTheStopIsExplainedOnEveryScreen) {
    LiveSnapshot snapshot = Full();
    snapshot.samplesChannels = true;
    snapshot.streams[0].isChannel = false;

    EXPECT_EQ("CHANNELS   nothing yet: the device holds back up to 1 MiB until the stop",
              RowOf(Rows(snapshot), "CHANNELS"));
    const auto high = Rows(snapshot, {80, 34});
    EXPECT_EQ("nothing yet: the device holds back up to 1 MiB until the stop",
              RowOf(high, "nothing yet"));
    EXPECT_EQ(0u, RowOf(high, "3 llc").find("3 llc.data "));
}

TEST(LiveLayout, ChannelThatHasArrivedOrIsNotReadNeedsNoExplanation) {
    LiveSnapshot snapshot = Full();
    snapshot.samplesChannels = true;
    EXPECT_EQ("no row begins with nothing", RowOf(Rows(snapshot, {80, 34}), "nothing"));
    snapshot.samplesChannels = false;
    snapshot.streams[0].isChannel = false;
    EXPECT_EQ("no row begins with nothing", RowOf(Rows(snapshot, {80, 34}), "nothing"));
}

TEST(LiveLayout, LostRecordsAreTold) {
    LiveSnapshot snapshot = Full();
    snapshot.streams[0].lostRecords = 99;

    EXPECT_NE(std::string::npos, RowOf(Rows(snapshot), "page-faults").find("lost 99 records"));
}

TEST(LiveLayout, StreamWithoutEventsTakesASecondRowForItsLossesAlone) {
    LiveSnapshot snapshot = Full();
    host::LiveStream file;
    file.deviceId = 3;
    file.name = "next.data";
    snapshot.streams.push_back(file);
    snapshot.streams[0].events.clear();
    const auto behindTheFirst = [&] {
        const auto rows = Rows(snapshot, {80, 60});
        return *(std::find(rows.begin(), rows.end(), RowOf(rows, "3 llc.data")) + 1);
    };
    EXPECT_EQ(0u, behindTheFirst().find("3 next.data "));

    snapshot.streams[0].lostRecords = 99;

    EXPECT_EQ("    lost 99 records", behindTheFirst());
}

TEST(LiveLayout, QueueTellsWhatWaitsAndWhatWasSkipped) {
    LiveSnapshot snapshot = Full();
    snapshot.queue = {5, 1000, 70, 2, 3, 4};

    EXPECT_EQ("QUEUE      5 waiting (1.0 kB), 70 at most; skipped 2 chunks, 3 frames; 4 unreadable",
              RowOf(Rows(snapshot, {90, 24}), "QUEUE"));
}

TEST(LiveLayout, QueueIsEmptyAtFirst) {
    EXPECT_EQ("QUEUE      0 waiting (0 B), 0 at most; skipped 0 chunks, 0 frames",
              RowOf(Rows(Empty(), {90, 24}), "QUEUE"));
}

TEST(LiveLayout, OptionsOfTheViewNameTheSamplersOfEveryJob) {
    std::vector<host::DeviceJob> jobs(2);
    EXPECT_FALSE(host::MakeLiveOptions("t", jobs, {}).samplesMemory);
    jobs[0].samplers = {"cpu", "memory"};
    jobs[1].samplers = {"processes", "llc"};

    for (int i = 0; i < 2; ++i) {
        const host::LiveOptions options = host::MakeLiveOptions("t", jobs, {});
        EXPECT_TRUE(options.samplesCpu);
        EXPECT_TRUE(options.samplesMemory);
        EXPECT_TRUE(options.samplesProcesses);
        EXPECT_TRUE(options.samplesChannels);
        std::swap(jobs[0], jobs[1]);
    }
}

TEST(LiveLayout, SamplerThatWasNotAskedForIsNamedWithItsOption) {
    LiveSnapshot snapshot;
    const auto rows = Rows(snapshot);

    EXPECT_NE(std::string::npos, RowOf(rows, "CPU").find("ask for it with --cpu"));
    EXPECT_NE(std::string::npos, RowOf(rows, "MEMORY").find("--memory"));
    EXPECT_NE(std::string::npos, RowOf(rows, "PROCESSES").find("--processes"));
    EXPECT_NE(std::string::npos, RowOf(rows, "CHANNELS").find("--llc"));
}

TEST(LiveLayout, ManyCoresShrinkToACharacterEach) {
    LiveSnapshot snapshot = Full();
    for (int32_t core = 2; core < 128; ++core) {
        snapshot.cores.push_back(Core(core, 50, 50));
    }
    snapshot.cores[2].percent.reset();

    const auto rows = Rows(snapshot);

    EXPECT_EQ("cpu0-64        #-" + std::string(63, '='), RowOf(rows, "cpu0-64"));
    EXPECT_EQ("cpu65-127      " + std::string(63, '='), RowOf(rows, "cpu65"));
}

TEST(LiveLayout, ScreenOfAnySizeIsNeverExceeded) {
    LiveSnapshot snapshot = Full();
    snapshot.processes.resize(300, snapshot.processes[0]);
    snapshot.processes[0].name = "进程\x1b[2J\xff" + std::string(300, 'n');
    snapshot.streams.resize(50, snapshot.streams[0]);
    for (size_t columns = 1; columns < 140; columns += 3) {
        for (size_t rows = 1; rows < 60; ++rows) {
            const auto lines = host::LayOut(snapshot, {columns, rows}, Charset::UTF8);
            ASSERT_GE(rows, lines.size());
            for (const host::ScreenLine& line : lines) {
                ASSERT_GE(columns, line.Columns());
            }
        }
    }
}

TEST(LiveLayout, ProcessesGetTheRowsThatAreLeftAndTheKeysTheLast) {
    LiveSnapshot snapshot = Full();
    snapshot.processes.resize(300, snapshot.processes[0]);

    const auto rows = Rows(snapshot);

    ASSERT_EQ(24u, rows.size());
    EXPECT_EQ("q quit  c by CPU  m by memory  p by PID  space pause", rows[23]);
    EXPECT_EQ(0u, rows[22].find("    4711 R"));
}

TEST(LiveLayout, HostileNameStaysInItsRow) {
    LiveSnapshot snapshot = Full();
    snapshot.processes[0].name = "\x1b]0;title\x07\n\x1b[2Jx";

    const auto lines = host::LayOut(snapshot, {120, 24}, Charset::UTF8);

    for (const host::ScreenLine& line : lines) {
        EXPECT_EQ(std::string::npos, line.Plain().find_first_of("\x1b\n\x07"));
    }
    EXPECT_NE(std::string::npos,
              RowOf(Rows(snapshot, {120, 24}), "4711").find("  \\x1b]0;title\\x07\\x0a\\x1b[2Jx"));
}

TEST(LiveLayout, PausedPictureSaysSo) {
    LiveSnapshot snapshot = Full();
    snapshot.paused = true;

    EXPECT_NE(std::string::npos, Rows(snapshot)[0].find("PAUSED"));
}

TEST(LiveLayout, NumbersOfAnySizeAreShort) {
    EXPECT_EQ("0.0", host::ShortNumber(0));
    EXPECT_EQ("9.5", host::ShortNumber(9.5));
    EXPECT_EQ("999", host::ShortNumber(999.4));
    EXPECT_EQ("1.00k", host::ShortNumber(999.6));
    EXPECT_EQ("12.3k", host::ShortNumber(12345));
    EXPECT_EQ("4.57M", host::ShortNumber(4567890));
    EXPECT_EQ("5000T", host::ShortNumber(5e15));
}

}  // namespace
}  // namespace tiv::test
