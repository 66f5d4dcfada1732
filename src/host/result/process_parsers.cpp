// A process's readings as rows.
#include "host/result/process_parsers.h"

#include <array>

namespace tiv::host {

namespace {

constexpr std::string_view NAME_KEY = "ProcessName:";
constexpr std::string_view CPU_KEY = "cpu";
// What the daemon writes when the process was gone before its name could be read.
constexpr std::string_view NO_NAME = "self";
constexpr size_t MAX_NAME_BYTES = 255;
constexpr uint64_t NS_PER_SECOND = 1000000000;

// Numbers of stat behind the state, by their place.
enum StatField : size_t {
    PARENT = 0,
    USER_TICKS = 10,
    SYSTEM_TICKS = 11,
    THREADS = 16,
    START = 18
};
constexpr size_t STAT_FIELDS = 19;

// Takes the last line off `text`; what is left ends with a line end or is empty.
bool TakeLastLine(std::string_view& text, std::string_view& line) {
    if (text.empty() || text.back() != '\n') {
        return false;
    }
    const std::string_view body = text.substr(0, text.size() - 1);
    const size_t before = body.rfind('\n');
    const size_t begin = before == std::string_view::npos ? 0 : before + 1;
    line = body.substr(begin);
    text.remove_suffix(text.size() - begin);
    return true;
}

// Steps behind blanks and a number that is not used, which may be negative.
bool SkipField(std::string_view& rest) {
    SkipBlanks(rest);
    size_t end = !rest.empty() && rest.front() == '-' ? 1 : 0;
    const size_t begin = end;
    while (end < rest.size() && rest[end] >= '0' && rest[end] <= '9') {
        ++end;
    }
    rest.remove_prefix(end);
    return end > begin;
}

struct Stat {
    std::string_view name;
    char state = '?';
    std::array<uint64_t, STAT_FIELDS> numbers = {};
};

bool ParseNumbers(std::string_view rest, Stat& stat) {
    for (size_t i = 0; i < STAT_FIELDS; ++i) {
        const bool used =
            i == PARENT || i == USER_TICKS || i == SYSTEM_TICKS || i == THREADS || i == START;
        if (used ? !TakeField(rest, stat.numbers[i]) : !SkipField(rest)) {
            return false;
        }
    }
    return true;
}

// "<pid> (<name>) <state> <numbers>\n"
bool ParseStat(std::string_view text, uint32_t pid, Stat& stat) {
    uint64_t number = 0;
    if (!TakeNumber(text, number) || number != pid || !TakeText(text, " (")) {
        return false;
    }
    const size_t end = text.rfind(") ");
    // No such place is beyond every limit too.
    if (end > MAX_NAME_BYTES || end + 4 > text.size()) {
        return false;
    }
    stat.name = text.substr(0, end);
    stat.state = text[end + 2];
    const bool isState = stat.state >= 'A' && stat.state <= 'z';
    return isState && ParseNumbers(text.substr(end + 3), stat);
}

}  // namespace

void ProcessCpuParser::AddUse(ProcessCpuRow& row) {
    if (previous_.has_value() && previous_->process == row.process &&
        row.timeNs > previous_->timeNs && row.userTicks >= previous_->userTicks &&
        row.systemTicks >= previous_->systemTicks) {
        uint64_t userNs = row.userTicks - previous_->userTicks;
        uint64_t systemNs = row.systemTicks - previous_->systemTicks;
        if (Scale(userNs, NS_PER_SECOND) && Scale(systemNs, NS_PER_SECOND)) {
            row.use = ProcessCpuUse{row.timeNs - previous_->timeNs, userNs / ticksPerSecond_,
                                    systemNs / ticksPerSecond_};
        }
    }
    previous_ = row;
}

bool ProcessCpuParser::Parse(const SampleRecord& record) {
    std::string_view text = record.data;
    std::string_view line;
    if (!TakeLastLine(text, line)) {
        return false;
    }
    if (line.substr(0, CPU_KEY.size()) == CPU_KEY && !TakeLastLine(text, line)) {
        return false;
    }
    Stat stat;
    if (line.substr(0, NAME_KEY.size()) != NAME_KEY || !ParseStat(text, lives_.Pid(), stat) ||
        stat.numbers[PARENT] > UINT32_MAX) {
        return false;
    }
    const auto process = lives_.OfCpuReading(
        {stat.numbers[START], static_cast<uint32_t>(stat.numbers[PARENT]), stat.name},
        record.timeNs);
    if (!process.has_value()) {
        return false;
    }
    ProcessCpuRow row;
    row.process = *process;
    row.timeNs = record.timeNs;
    row.userTicks = stat.numbers[USER_TICKS];
    row.systemTicks = stat.numbers[SYSTEM_TICKS];
    row.threads = stat.numbers[THREADS];
    row.state = stat.state;
    AddUse(row);
    Visitor().OnProcessCpu(row);
    return true;
}

bool ProcessMemoryParser::ParseSizes(std::string_view line, ProcessMemoryRow& row) const {
    uint64_t libraries = 0;  // always 0 since long ago
    uint64_t dirty = 0;
    for (uint64_t* pages : {&row.sizeBytes, &row.residentBytes, &row.sharedBytes, &row.textBytes,
                            &libraries, &row.dataBytes, &dirty}) {
        if (!TakeField(line, *pages) || !Scale(*pages, pageBytes_)) {
            return false;
        }
    }
    return line.empty();
}

bool ProcessMemoryParser::Parse(const SampleRecord& record) {
    std::string_view text = record.data;
    std::string_view sizes;
    std::string_view name;
    ProcessMemoryRow row;
    if (!TakeLine(text, sizes) || !ParseSizes(sizes, row) || !TakeLine(text, name) ||
        !TakeText(name, NAME_KEY) || !text.empty() || name.size() > MAX_NAME_BYTES) {
        return false;
    }
    const auto process = lives_.OfMemoryReading(name == NO_NAME ? std::string_view() : name,
                                                record.index, record.timeNs);
    if (!process.has_value()) {
        return false;
    }
    row.process = *process;
    row.timeNs = record.timeNs;
    Visitor().OnProcessMemory(row);
    return true;
}

}  // namespace tiv::host
