// The panels of the live view.
#include "host/live/live_layout.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "host/duration.h"

namespace tiv::host {

namespace {

constexpr const char* NOT_MEASURED = "-";
// A reader of a channel uploads from 1 MiB on and the rest when the job stops.
constexpr const char* HELD_BACK = "nothing yet: the device holds back up to 1 MiB until the stop";
constexpr double FULL_PERCENT = 100.0;
constexpr double WARNING_PERCENT = 60.0;
constexpr double ALARM_PERCENT = 85.0;
constexpr size_t ROWS_BESIDES_CORES = 12;
constexpr size_t SAMPLER_ROWS_FROM =
    34;  // rows of a screen that has room for the samplers' streams
constexpr size_t BAR_COLUMNS = 20;
constexpr size_t ROWS_WITH_KEYS = 6;

std::string Percent(std::optional<double> percent) {
    return percent.has_value() ? fmt::format("{:.1f}%", *percent) : NOT_MEASURED;
}

std::string Bytes(std::optional<uint64_t> bytes) {
    return bytes.has_value() ? FormatBytes(static_cast<double>(*bytes)) : NOT_MEASURED;
}

std::string Rate(std::optional<double> bytesPerSecond) {
    return bytesPerSecond.has_value() ? FormatBytes(*bytesPerSecond) + "/s" : NOT_MEASURED;
}

Style StyleOfPercent(double percent) {
    if (percent >= ALARM_PERCENT) {
        return Style::ALARM;
    }
    return percent >= WARNING_PERCENT ? Style::WARNING : Style::GOOD;
}

// Makes the lines of one frame, panel by panel.
class Frame {
 public:
    Frame(const LiveSnapshot& snapshot, const ScreenSize& size, Charset charset)
        : snapshot_(snapshot), size_(size), charset_(charset) {}

    std::vector<ScreenLine> Make();

 private:
    // Valid until the next one. Lines that find no room are dropped at the end.
    ScreenLine& NewLine() {
        lines_.emplace_back(size_.columns, charset_);
        return lines_.back();
    }
    [[nodiscard]] size_t RowsLeft() const {
        return size_.rows > lines_.size() ? size_.rows - lines_.size() : 0;
    }
    [[nodiscard]] size_t MostCoreRows() const {
        return size_.rows > ROWS_BESIDES_CORES + 2 ? (size_.rows - ROWS_BESIDES_CORES) / 2 : 1;
    }

    void PutTitle();
    void PutBehind(ScreenLine& line, std::optional<double> seconds);
    void PutCpu();
    void PutCore(const LiveCore& core);
    void PutCoreGlyphs(size_t rows);
    void PutMemory();
    void PutStreams();
    void PutStream(const LiveStream& stream);
    void PutEvents(const LiveStream& stream);
    void PutQueue();
    void PutProcesses();
    void PutProcessHead();
    void PutProcess(const LiveProcess& process);
    void PutKeys();

    const LiveSnapshot& snapshot_;
    const ScreenSize size_;
    const Charset charset_;
    std::vector<ScreenLine> lines_;
};

void Frame::PutTitle() {
    ScreenLine& line = NewLine();
    line.Put(snapshot_.title, Style::BOLD);
    if (snapshot_.devices.size() == 1) {
        line.Put(fmt::format("  device {}", snapshot_.devices.front()));
    } else if (!snapshot_.devices.empty()) {
        line.Put(fmt::format("  devices {}", fmt::join(snapshot_.devices, ",")));
    }
    const std::string of =
        snapshot_.total.count() == 0 ? "" : " of " + FormatDuration(snapshot_.total);
    line.Put(fmt::format("  {} {}{}", snapshot_.phase, FormatDuration(snapshot_.elapsed), of));
    line.Put(fmt::format("  {}  {}", Bytes(snapshot_.bytes), Rate(snapshot_.bytesPerSecond)));
    if (snapshot_.paused) {
        line.Put("  ").Put(" PAUSED ", Style::REVERSE);
    }
}

// At the right end of a head line: how old the newest reading is.
void Frame::PutBehind(ScreenLine& line, std::optional<double> seconds) {
    const std::string text =
        seconds.has_value() ? fmt::format("  newest {:.1f}s ago", *seconds) : "  waiting for data";
    if (line.Left() >= text.size()) {
        line.PutRight(text, size_.columns, Style::DIM);
    }
}

void Frame::PutCore(const LiveCore& core) {
    ScreenLine& line = NewLine();
    line.Put(core.core == ALL_CORES ? "all" : fmt::format("cpu{}", core.core));
    if (core.percent.has_value()) {
        const auto& percent = *core.percent;
        const double busy = std::max(0.0, FULL_PERCENT - percent[IDLE] - percent[IOWAIT]);
        line.PutRight(Percent(busy), 15, StyleOfPercent(busy));
        line.PutRight(Percent(percent[USER] + percent[NICE]), 23);
        line.PutRight(Percent(percent[SYSTEM] + percent[IRQ] + percent[SOFTIRQ]), 31);
        line.PutRight(Percent(percent[IOWAIT]), 39);
        line.PutRight(Percent(percent[STEAL]), 47);
    } else {
        for (const size_t column : {15u, 23u, 31u, 39u, 47u}) {
            line.PutRight(NOT_MEASURED, column);
        }
    }
    line.Pad(49);
    line.Put(Sparkline(core.busyPercent, FULL_PERCENT, line.Left(), charset_));
}

// A character for each core, where rows do not suffice.
void Frame::PutCoreGlyphs(size_t rows) {
    constexpr size_t LABEL = 15;
    const size_t each = size_.columns > LABEL ? size_.columns - LABEL : 1;
    const auto& cores = snapshot_.cores;
    for (size_t first = 1; first < cores.size() && rows > 0; first += each, --rows) {
        ScreenLine& line = NewLine();
        const size_t end = std::min(first + each, cores.size());
        line.Put(fmt::format("cpu{}-{}", cores[first].core, cores[end - 1].core)).Pad(LABEL);
        for (size_t i = first; i < end; ++i) {
            const auto& percent = cores[i].percent;
            if (!percent.has_value()) {
                line.Put(NOT_MEASURED);
                continue;
            }
            const double busy = FULL_PERCENT - (*percent)[IDLE] - (*percent)[IOWAIT];
            line.Put(Sparkline({busy}, FULL_PERCENT, 1, charset_), StyleOfPercent(busy));
        }
    }
}

void Frame::PutCpu() {
    ScreenLine& head = NewLine();
    head.Put("CPU", Style::BOLD);
    if (!snapshot_.samplesCpu) {
        head.Put("        not sampled: ask for it with --cpu", Style::DIM);
        return;
    }
    head.PutRight("busy", 15, Style::DIM).PutRight("user", 23, Style::DIM);
    head.PutRight("system", 31, Style::DIM).PutRight("iowait", 39, Style::DIM);
    head.PutRight("steal", 47, Style::DIM).Pad(49);
    if (head.Left() > 34) {
        head.Put("busy, by second", Style::DIM);
    }
    PutBehind(head, snapshot_.cpuBehindSeconds);
    if (snapshot_.cores.empty()) {
        PutCore(LiveCore());
    } else if (snapshot_.cores.size() <= MostCoreRows() + 1) {
        for (const LiveCore& core : snapshot_.cores) {
            PutCore(core);
        }
    } else {
        PutCore(snapshot_.cores.front());
        PutCoreGlyphs(MostCoreRows());
    }
}

void Frame::PutMemory() {
    const LiveMemory& memory = snapshot_.memory;
    ScreenLine& line = NewLine();
    line.Put("MEMORY", Style::BOLD);
    if (!snapshot_.samplesMemory) {
        line.Put("     not sampled: ask for it with --memory", Style::DIM);
        return;
    }
    std::optional<double> used;
    std::optional<uint64_t> usedBytes;
    if (memory.totalBytes.value_or(0) > 0 && memory.availableBytes.has_value() &&
        *memory.availableBytes <= *memory.totalBytes) {
        usedBytes = *memory.totalBytes - *memory.availableBytes;
        used = static_cast<double>(*usedBytes) / static_cast<double>(*memory.totalBytes);
    }
    const double percent = used.value_or(0) * FULL_PERCENT;
    line.PutRight(used.has_value() ? Percent(percent) : NOT_MEASURED, 15, StyleOfPercent(percent));
    line.Put(fmt::format("  {} used of {}, {} available", Bytes(usedBytes),
                         Bytes(memory.totalBytes), Bytes(memory.availableBytes)));
    PutBehind(line, snapshot_.memoryBehindSeconds);
    ScreenLine& more = NewLine();
    more.Pad(17);
    if (used.has_value() && size_.columns > 100) {
        more.Put(Bar(*used, BAR_COLUMNS, charset_), StyleOfPercent(percent)).Put("  ");
    }
    more.Put(
        fmt::format("cached {}, free {}, ", Bytes(memory.cachedBytes), Bytes(memory.freeBytes)));
    if (memory.swapTotalBytes.has_value() && *memory.swapTotalBytes == 0) {
        more.Put("no swap");
    } else {
        more.Put(fmt::format("swap {} free of {}", Bytes(memory.swapFreeBytes),
                             Bytes(memory.swapTotalBytes)));
    }
}

void Frame::PutEvents(const LiveStream& stream) {
    if (stream.events.empty() && stream.lostRecords == 0) {
        return;
    }
    ScreenLine& line = NewLine();
    line.Put("   ");
    for (const LiveEvent& event : stream.events) {
        line.Put(" ").Put(event.name, Style::DIM);
        line.Put(event.perSecond.has_value() ? fmt::format(" {}/s ", ShortNumber(*event.perSecond))
                                             : " - ");
    }
    if (stream.lostRecords > 0) {
        line.Put(fmt::format(" lost {} records", stream.lostRecords), Style::ALARM);
    }
}

void Frame::PutStream(const LiveStream& stream) {
    ScreenLine& line = NewLine();
    line.PutCut(fmt::format("{} {}", stream.deviceId, stream.name), 25);
    line.Put(" ");
    line.PutRight(Rate(stream.bytesPerSecond), 37);
    line.PutRight(Bytes(stream.bytes), 47);
    line.PutRight(fmt::format("{}", stream.chunks), 55);
    if (!stream.source.empty()) {
        line.Put("  ").Put(stream.source, Style::DIM);
    }
}

void Frame::PutStreams() {
    ScreenLine& head = NewLine();
    head.Put("CHANNELS", Style::BOLD);
    const bool hasChannel = std::any_of(snapshot_.streams.begin(), snapshot_.streams.end(),
                                        [](const LiveStream& stream) { return stream.isChannel; });
    const bool showsSamplers = size_.rows >= SAMPLER_ROWS_FROM;
    if (!hasChannel && !showsSamplers) {
        head.Put(snapshot_.samplesChannels ? std::string("   ") + HELD_BACK
                                           : "   none read: ask for one with --llc",
                 Style::DIM);
        return;
    }
    head.PutRight("rate", 37, Style::DIM).PutRight("bytes", 47, Style::DIM);
    head.PutRight("chunks", 55, Style::DIM).Put("  device, and what it calls it", Style::DIM);
    if (!hasChannel && snapshot_.samplesChannels) {
        NewLine().Put(HELD_BACK, Style::DIM);
    }
    size_t rows = RowsLeft() / 2;
    for (const bool channels : {true, false}) {
        for (const LiveStream& stream : snapshot_.streams) {
            if (stream.isChannel != channels || (!channels && !showsSamplers) || rows < 2) {
                continue;
            }
            const size_t before = lines_.size();
            PutStream(stream);
            PutEvents(stream);
            rows -= std::min(rows, lines_.size() - before);
        }
    }
}

void Frame::PutQueue() {
    const LiveQueue& queue = snapshot_.queue;
    ScreenLine& line = NewLine();
    line.Put("QUEUE", Style::BOLD);
    line.Put(fmt::format("      {} waiting ({}), {} at most", queue.waiting,
                         Bytes(queue.waitingBytes), queue.mostWaiting));
    line.Put(fmt::format("; skipped {} chunks", queue.skippedChunks),
             queue.skippedChunks > 0 ? Style::WARNING : Style::PLAIN);
    line.Put(fmt::format(", {} frames", queue.skippedFrames));
    if (queue.unreadable > 0) {
        line.Put(fmt::format("; {} unreadable", queue.unreadable), Style::ALARM);
    }
}

void Frame::PutProcessHead() {
    ScreenLine& head = NewLine();
    const auto style = [this](ProcessOrder order) {
        return snapshot_.order == order ? Style::REVERSE : Style::DIM;
    };
    head.PutRight("PID", 8, style(ProcessOrder::PID)).Put(" S", Style::DIM);
    head.PutRight("CPU%", 18, style(ProcessOrder::CPU));
    head.PutRight("user", 25, Style::DIM).PutRight("system", 32, Style::DIM);
    head.PutRight("memory", 42, style(ProcessOrder::MEMORY));
    head.PutRight("size", 52, Style::DIM).PutRight("threads", 60, Style::DIM);
    head.Put("  NAME", Style::DIM);
}

void Frame::PutProcess(const LiveProcess& process) {
    ScreenLine& line = NewLine();
    const auto number = [](std::optional<double> percent) {
        return percent.has_value() ? fmt::format("{:.1f}", *percent) : NOT_MEASURED;
    };
    std::optional<double> all;
    if (process.userPercent.has_value() && process.systemPercent.has_value()) {
        all = *process.userPercent + *process.systemPercent;
    }
    line.PutRight(fmt::format("{}", process.pid), 8);
    line.Put(fmt::format(" {}", process.state.value_or('-')));
    line.PutRight(number(all), 18, all.value_or(0) >= WARNING_PERCENT ? Style::BOLD : Style::PLAIN);
    line.PutRight(number(process.userPercent), 25).PutRight(number(process.systemPercent), 32);
    line.PutRight(Bytes(process.residentBytes), 42).PutRight(Bytes(process.sizeBytes), 52);
    line.PutRight(process.threads.has_value() ? fmt::format("{}", *process.threads) : NOT_MEASURED,
                  60);
    line.Put("  ").Put(process.name.empty() ? NOT_MEASURED : process.name);
}

void Frame::PutProcesses() {
    ScreenLine& head = NewLine();
    head.Put("PROCESSES", Style::BOLD);
    if (!snapshot_.samplesProcesses) {
        head.Put("  not sampled: ask for them with --processes", Style::DIM);
        return;
    }
    const auto running =
        std::count_if(snapshot_.processes.begin(), snapshot_.processes.end(),
                      [](const LiveProcess& process) { return process.state == 'R'; });
    head.Put(snapshot_.processes.empty()
                 ? std::string("  -")
                 : fmt::format("  {}, {} running", snapshot_.processes.size(), running));
    PutBehind(head, snapshot_.processesBehindSeconds);
    PutProcessHead();
    for (const LiveProcess& process : snapshot_.processes) {
        if (RowsLeft() <= 1) {
            break;
        }
        PutProcess(process);
    }
}

// In the last row, unless the screen is too low for it.
void Frame::PutKeys() {
    const size_t rows = size_.rows < ROWS_WITH_KEYS ? size_.rows : size_.rows - 1;
    while (lines_.size() > rows) {
        lines_.pop_back();
    }
    if (rows == size_.rows) {
        return;
    }
    while (RowsLeft() > 1) {
        NewLine();
    }
    ScreenLine& line = NewLine();
    line.Put("q", Style::BOLD).Put(" quit  ");
    line.Put("c", Style::BOLD).Put(" by CPU  ").Put("m", Style::BOLD).Put(" by memory  ");
    line.Put("p", Style::BOLD).Put(" by PID  ").Put("space", Style::BOLD).Put(" pause");
}

std::vector<ScreenLine> Frame::Make() {
    PutTitle();
    PutCpu();
    PutMemory();
    PutStreams();
    PutQueue();
    PutProcesses();
    PutKeys();
    return std::move(lines_);
}

}  // namespace

std::string ShortNumber(double number) {
    constexpr std::array<const char*, 5> UNITS = {"", "k", "M", "G", "T"};
    constexpr double STEP = 1000;
    size_t unit = 0;
    while (number >= STEP - 0.5 && unit + 1 < UNITS.size()) {
        number /= STEP;
        ++unit;
    }
    const int digits = unit == 0 ? (number < 10 ? 1 : 0) : number < 10 ? 2 : number < 100 ? 1 : 0;
    return fmt::format("{:.{}f}{}", number, digits, UNITS[unit]);
}

std::vector<ScreenLine> LayOut(const LiveSnapshot& snapshot, const ScreenSize& size,
                               Charset charset) {
    return Frame(snapshot, size, charset).Make();
}

}  // namespace tiv::host
