// Counting of head lines.
#include "host/result/profile_samples.h"

namespace tiv::host {

namespace {

// A command name has 15 bytes at most and numbers have 20: the pattern lies well within.
constexpr size_t LINE_BYTES = 256;
constexpr std::string_view DIGITS = "0123456789";
constexpr std::string_view CPU_BEGIN = " [";

// Steps behind one or more of `chars` at the front of `rest`. False when there is none.
bool Skip(std::string_view& rest, std::string_view chars) {
    const size_t end = rest.find_first_not_of(chars);
    const size_t length = end == std::string_view::npos ? rest.size() : end;
    rest.remove_prefix(length);
    return length > 0;
}

// True when `rest` begins with "<cpu>] <seconds>.<fraction>:".
bool BeginsWithCpuAndTime(std::string_view rest) {
    return Skip(rest, DIGITS) && Skip(rest, "]") && Skip(rest, " ") && Skip(rest, DIGITS) &&
           Skip(rest, ".") && Skip(rest, DIGITS) && Skip(rest, ":");
}

bool IsHead(std::string_view line) {
    if (line.empty() || line.front() == '\t') {
        return false;
    }
    size_t at = line.find(CPU_BEGIN);
    while (at != std::string_view::npos &&
           !BeginsWithCpuAndTime(line.substr(at + CPU_BEGIN.size()))) {
        at = line.find(CPU_BEGIN, at + 1);
    }
    return at != std::string_view::npos;
}

}  // namespace

void ProfileSampleCounter::Feed(std::string_view bytes) {
    while (!bytes.empty()) {
        const size_t end = bytes.find('\n');
        Append(bytes.substr(0, end));
        if (end == std::string_view::npos) {
            return;
        }
        EndLine();
        bytes.remove_prefix(end + 1);
    }
}

void ProfileSampleCounter::Finish() { EndLine(); }

void ProfileSampleCounter::Append(std::string_view part) {
    line_.append(part.substr(0, LINE_BYTES - line_.size()));
}

void ProfileSampleCounter::EndLine() {
    samples_ += IsHead(line_) ? 1 : 0;
    line_.clear();
}

}  // namespace tiv::host
