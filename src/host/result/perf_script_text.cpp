// Taking the lines of a CPU profile apart.
#include "host/result/perf_script_text.h"

#include "host/result/number_text.h"

namespace tiv::host {

namespace {

constexpr std::string_view UNKNOWN = "[unknown]";
constexpr std::string_view DIGITS = "0123456789";

std::string_view Known(std::string_view text) { return text == UNKNOWN ? "" : text; }

bool TakeSmallNumber(std::string_view& rest, uint32_t& number) {
    uint64_t wide = 0;
    if (!TakeNumber(rest, wide) || wide > UINT32_MAX) {
        return false;
    }
    number = static_cast<uint32_t>(wide);
    return true;
}

// What stands behind " [": "<core>] <time>: <period> <event>:" and, maybe, a frame.
bool ParseTail(std::string_view rest, ProfileHead& head) {
    if (!TakeSmallNumber(rest, head.core) || head.core > static_cast<uint32_t>(INT32_MAX) ||
        !TakeText(rest, "]")) {
        return false;
    }
    SkipBlanks(rest);
    if (!TakeSeconds(rest, head.timeNs) || !TakeText(rest, ":")) {
        return false;
    }
    SkipBlanks(rest);
    if (!TakeNumber(rest, head.period) || !TakeText(rest, " ")) {
        return false;
    }
    SkipBlanks(rest);
    const size_t end = rest.find(' ');
    head.event = rest.substr(0, end);
    if (head.event.size() < 2 || head.event.back() != ':') {
        return false;
    }
    head.event.remove_suffix(1);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end);
    SkipBlanks(rest);
    head.frame.reset();
    return rest.empty() || ParseStackFrame(rest, head.frame.emplace());
}

// "<thread>", "<process>/<thread>", or -1 for a thread that the recorder did not know.
bool ParseIds(std::string_view ids, ProfileHead& head) {
    head.pid.reset();
    head.threadId.reset();
    if (ids == "-1") {
        return true;
    }
    uint32_t number = 0;
    if (!TakeSmallNumber(ids, number)) {
        return false;
    }
    if (TakeText(ids, "/")) {
        head.pid = number;
        if (!TakeSmallNumber(ids, number)) {
            return false;
        }
    }
    head.threadId = number;
    return ids.empty();
}

// What stands before " [": the command, which may itself end in numbers, and the ids.
bool ParseFront(std::string_view front, ProfileHead& head) {
    const size_t last = front.rfind(' ');
    if (last == std::string_view::npos || !ParseIds(front.substr(last + 1), head)) {
        return false;
    }
    const size_t end = front.find_last_not_of(' ', last);
    head.command = front.substr(0, end == std::string_view::npos ? 0 : end + 1);
    return true;
}

// Where the module begins: behind "+0x<offset> (", or behind the first " (".
struct SymbolEnd {
    size_t symbol;  // bytes of the symbol
    size_t module;  // where the module's text begins
    uint64_t offset;
};

bool FindSymbolEnd(std::string_view text, SymbolEnd& end) {
    for (size_t at = text.find("+0x"); at != std::string_view::npos;
         at = text.find("+0x", at + 1)) {
        std::string_view rest = text.substr(at + 3);
        if (TakeHex(rest, end.offset) && TakeText(rest, " (")) {
            end.symbol = at;
            end.module = text.size() - rest.size();
            return true;
        }
    }
    const bool unknown = text.substr(0, UNKNOWN.size()) == UNKNOWN;
    const size_t at = unknown ? text.find(" (") : text.rfind(" (");
    end = {at, at + 2, 0};
    return at != std::string_view::npos;
}

}  // namespace

bool ParseStackFrame(std::string_view line, StackFrame& frame) {
    const size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string_view::npos) {
        return false;
    }
    line.remove_prefix(begin);
    SymbolEnd end{};
    if (!TakeHex(line, frame.address) || !TakeText(line, " ") || line.empty() ||
        line.back() != ')' || !FindSymbolEnd(line, end)) {
        return false;
    }
    frame.symbol = Known(line.substr(0, end.symbol));
    frame.offset = end.offset;
    frame.module = Known(line.substr(end.module, line.size() - end.module - 1));
    return true;
}

bool ParseProfileHead(std::string_view line, ProfileHead& head) {
    if (line.empty() || line.front() == '\t') {
        return false;
    }
    for (size_t at = line.rfind(" ["); at != std::string_view::npos;
         at = at == 0 ? std::string_view::npos : line.rfind(" [", at - 1)) {
        const size_t digit = at + 2;
        if (digit < line.size() && DIGITS.find(line[digit]) != std::string_view::npos &&
            ParseTail(line.substr(digit), head) && ParseFront(line.substr(0, at), head)) {
            return true;
        }
    }
    return false;
}

}  // namespace tiv::host
