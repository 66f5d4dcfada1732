// Double of the log library: records every line in place of writing it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/log_api.h"
#include "platform/mutex.h"

namespace tiv::test {

// One recorded message. `text` is without the prefix "[file:line] >>> (tid:n) " and the newline.
struct LogLine {
    char level;  // 'E', 'W', 'I', 'D', or 'V' for an event
    std::string text;
    std::string file;    // of the prefix; empty when the message has no prefix
    int line = 0;        // of the prefix
    std::string thread;  // name of the writing thread
    std::thread::id threadId;
    std::string raw;  // as it was written
    int32_t moduleId = 0;
};

// Everything is enabled until SetLevel says otherwise. Thread-safe; lives until the process ends,
// so that static destructors may log.
class RecordedLog {
 public:
    static RecordedLog& Instance();

    // Back to the first state: no record, no hook, everything enabled, both results 0.
    void Reset() EXCLUDES(mutex_);
    void Clear() EXCLUDES(mutex_);
    // Lowest level that CheckLogLevel accepts: DLOG_DEBUG to DLOG_ERROR.
    void SetLevel(int32_t level) EXCLUDES(mutex_);
    // What DlogSetAttr and dlog_init return.
    void SetAttrResult(int32_t result) EXCLUDES(mutex_);
    void SetInitResult(int32_t result) EXCLUDES(mutex_);

    // Exact text.
    bool Has(char level, const std::string& text) const EXCLUDES(mutex_);
    bool Contains(char level, const std::string& part) const EXCLUDES(mutex_);
    size_t Count(char level, const std::string& text) const EXCLUDES(mutex_);
    size_t CountOf(char level) const EXCLUDES(mutex_);
    // Texts of one level in the order written.
    std::vector<std::string> Texts(char level) const EXCLUDES(mutex_);
    // Those that the calling thread wrote: what others say in the background doesn't count.
    std::vector<std::string> OwnTexts(char level) const EXCLUDES(mutex_);
    std::vector<LogLine> Lines() const EXCLUDES(mutex_);
    // Those of the calling thread only.
    std::vector<LogLine> OwnLines() const EXCLUDES(mutex_);
    // False when the exact text has not been written within ten seconds.
    bool WaitFor(char level, const std::string& text) EXCLUDES(mutex_);

    std::vector<DlogAttr> Attributes() const EXCLUDES(mutex_);
    int InitCalls() const EXCLUDES(mutex_);

    // Calls `hook` on the thread that writes a text with this part, behind the record and without
    // a lock held. One hook at a time; Reset takes it away.
    void OnText(std::string part, std::function<void()> hook) EXCLUDES(mutex_);

    // The C functions end here.
    void Write(char level, int32_t moduleId, std::string raw) EXCLUDES(mutex_);
    bool Enabled(int32_t level) const EXCLUDES(mutex_);
    int32_t TakeAttr(const DlogAttr& attr) EXCLUDES(mutex_);
    int32_t TakeInit() EXCLUDES(mutex_);

 private:
    RecordedLog() = default;

    mutable Mutex mutex_;
    CondVar written_;
    std::vector<LogLine> lines_ GUARDED_BY(mutex_);
    std::vector<DlogAttr> attributes_ GUARDED_BY(mutex_);
    int32_t level_ GUARDED_BY(mutex_) = DLOG_DEBUG;
    int32_t attrResult_ GUARDED_BY(mutex_) = 0;
    int32_t initResult_ GUARDED_BY(mutex_) = 0;
    int initCalls_ GUARDED_BY(mutex_) = 0;
    std::string hookedPart_ GUARDED_BY(mutex_);
    std::function<void()> hook_ GUARDED_BY(mutex_);
};

}  // namespace tiv::test
