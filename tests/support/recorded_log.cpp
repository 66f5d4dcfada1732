// Double of the log library: records every line in place of writing it.
#include "support/recorded_log.h"

#include <stdarg.h>
#include <stdio.h>
#include <sys/prctl.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include "support/before_every_test.h"

namespace tiv::test {

namespace {

constexpr std::chrono::seconds WAIT_LIMIT{10};

[[maybe_unused]] const bool fresh = BeforeEveryTest([] { RecordedLog::Instance().Reset(); });

std::string ThreadName() {
    char name[16] = {};
    return prctl(PR_GET_NAME, name) == 0 ? std::string(name) : std::string();
}

// Parts "[file:line] >>> (tid:n) text\n".
LogLine Dissect(std::string raw) {
    LogLine line;
    line.raw = raw;
    if (!raw.empty() && raw.back() == '\n') {
        raw.pop_back();
    }
    const size_t colon = raw.find(':');
    const size_t arrow = raw.find("] >>> (tid:");
    const size_t end = arrow == std::string::npos ? arrow : raw.find(") ", arrow);
    if (raw.empty() || raw[0] != '[' || end == std::string::npos || colon > arrow) {
        line.text = std::move(raw);
        return line;
    }
    line.file = raw.substr(1, colon - 1);
    line.line = std::atoi(raw.c_str() + colon + 1);
    line.text = raw.substr(end + 2);
    return line;
}

}  // namespace

RecordedLog& RecordedLog::Instance() {
    static RecordedLog& log = *std::unique_ptr<RecordedLog>(new RecordedLog).release();
    return log;
}

void RecordedLog::Reset() {
    Clear();
    MutexLock lock(mutex_);
    level_ = DLOG_DEBUG;
    attrResult_ = 0;
    initResult_ = 0;
    hook_ = nullptr;
}

void RecordedLog::Clear() {
    MutexLock lock(mutex_);
    lines_.clear();
    attributes_.clear();
    initCalls_ = 0;
}

void RecordedLog::SetLevel(int32_t level) {
    MutexLock lock(mutex_);
    level_ = level;
}

void RecordedLog::SetAttrResult(int32_t result) {
    MutexLock lock(mutex_);
    attrResult_ = result;
}

void RecordedLog::SetInitResult(int32_t result) {
    MutexLock lock(mutex_);
    initResult_ = result;
}

bool RecordedLog::Has(char level, const std::string& text) const { return Count(level, text) > 0; }

bool RecordedLog::Contains(char level, const std::string& part) const {
    MutexLock lock(mutex_);
    return std::any_of(lines_.begin(), lines_.end(), [&](const LogLine& line) {
        return line.level == level && line.text.find(part) != std::string::npos;
    });
}

size_t RecordedLog::Count(char level, const std::string& text) const {
    MutexLock lock(mutex_);
    return static_cast<size_t>(std::count_if(
        lines_.begin(), lines_.end(),
        [&](const LogLine& line) { return line.level == level && line.text == text; }));
}

size_t RecordedLog::CountOf(char level) const { return Texts(level).size(); }

std::vector<std::string> RecordedLog::Texts(char level) const {
    MutexLock lock(mutex_);
    std::vector<std::string> texts;
    for (const LogLine& line : lines_) {
        if (line.level == level) {
            texts.push_back(line.text);
        }
    }
    return texts;
}

std::vector<LogLine> RecordedLog::OwnLines() const {
    std::vector<LogLine> lines = Lines();
    const auto isOther = [](const LogLine& line) {
        return line.threadId != std::this_thread::get_id();
    };
    lines.erase(std::remove_if(lines.begin(), lines.end(), isOther), lines.end());
    return lines;
}

std::vector<std::string> RecordedLog::OwnTexts(char level) const {
    MutexLock lock(mutex_);
    std::vector<std::string> texts;
    for (const LogLine& line : lines_) {
        if (line.level == level && line.threadId == std::this_thread::get_id()) {
            texts.push_back(line.text);
        }
    }
    return texts;
}

std::vector<LogLine> RecordedLog::Lines() const {
    MutexLock lock(mutex_);
    return lines_;
}

bool RecordedLog::WaitFor(char level, const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + WAIT_LIMIT;
    const auto found = [&](const std::vector<LogLine>& lines) {
        return std::any_of(lines.begin(), lines.end(), [&](const LogLine& line) {
            return line.level == level && line.text == text;
        });
    };
    MutexLock lock(mutex_);
    while (!found(lines_)) {
        if (!written_.WaitUntil(mutex_, deadline)) {
            return found(lines_);
        }
    }
    return true;
}

std::vector<DlogAttr> RecordedLog::Attributes() const {
    MutexLock lock(mutex_);
    return attributes_;
}

int RecordedLog::InitCalls() const {
    MutexLock lock(mutex_);
    return initCalls_;
}

void RecordedLog::Write(char level, int32_t moduleId, std::string raw) {
    LogLine line = Dissect(std::move(raw));
    line.level = level;
    line.moduleId = moduleId;
    line.thread = ThreadName();
    line.threadId = std::this_thread::get_id();
    std::function<void()> hook;
    MutexLock lock(mutex_);
    if (hook_ && line.text.find(hookedPart_) != std::string::npos) {
        hook = hook_;
    }
    lines_.push_back(std::move(line));
    written_.NotifyAll();
    lock.Unlock();
    if (hook) {
        hook();
    }
}

void RecordedLog::OnText(std::string part, std::function<void()> hook) {
    MutexLock lock(mutex_);
    hookedPart_ = std::move(part);
    hook_ = std::move(hook);
}

bool RecordedLog::Enabled(int32_t level) const {
    MutexLock lock(mutex_);
    return level >= level_;
}

int32_t RecordedLog::TakeAttr(const DlogAttr& attr) {
    MutexLock lock(mutex_);
    attributes_.push_back(attr);
    return attrResult_;
}

int32_t RecordedLog::TakeInit() {
    MutexLock lock(mutex_);
    ++initCalls_;
    return initResult_;
}

}  // namespace tiv::test

namespace {

// Keeps errno: a product function may read it after it has logged.
void Record(char level, int32_t moduleId, const char* fmt, va_list args) {
    const int error = errno;
    va_list again;
    va_copy(again, args);
    const int length = vsnprintf(nullptr, 0, fmt, args);
    std::string text(length < 0 ? 0 : static_cast<size_t>(length), '\0');
    vsnprintf(text.data(), text.size() + 1, fmt, again);
    va_end(again);
    tiv::test::RecordedLog::Instance().Write(level, moduleId, std::move(text));
    errno = error;
}

}  // namespace

#define TIV_RECORDING_WRITER(name, level)               \
    void name(int32_t moduleId, const char* fmt, ...) { \
        va_list args;                                   \
        va_start(args, fmt);                            \
        Record(level, moduleId, fmt, args);             \
        va_end(args);                                   \
    }

extern "C" {

TIV_RECORDING_WRITER(DlogErrorInner, 'E')
TIV_RECORDING_WRITER(DlogWarnInner, 'W')
TIV_RECORDING_WRITER(DlogInfoInner, 'I')
TIV_RECORDING_WRITER(DlogDebugInner, 'D')
TIV_RECORDING_WRITER(DlogEventInner, 'V')

int32_t dlog_init(void) { return tiv::test::RecordedLog::Instance().TakeInit(); }

int32_t DlogSetAttr(struct DlogAttr attr) {
    return tiv::test::RecordedLog::Instance().TakeAttr(attr);
}

int32_t CheckLogLevel(int32_t, int32_t level) {
    return tiv::test::RecordedLog::Instance().Enabled(level) ? 1 : 0;
}

}  // extern "C"
