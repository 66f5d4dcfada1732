// Plans of faults as text, one fault a line.
#include "support/fault_plan.h"

#include <algorithm>
#include <charconv>
#include <sstream>

namespace tiv::test {

namespace {

// A misspelt name would be a plan that silently does nothing.
const char* const FUNCTIONS[] = {
    "drvHdcClientCreate",
    "drvHdcClientDestroy",
    "drvHdcServerCreate",
    "drvHdcServerDestroy",
    "drvHdcSessionAccept",
    "drvHdcSessionConnect",
    "halHdcSessionConnectEx",
    "drvHdcSetSessionReference",
    "drvHdcSessionClose",
    "drvHdcAllocMsg",
    "drvHdcFreeMsg",
    "drvHdcReuseMsg",
    "drvHdcGetMsgBuffer",
    "drvHdcAddMsgBuffer",
    "halHdcRecv",
    "halHdcSend",
    "drvHdcGetCapacity",
    "halHdcGetSessionAttr",
    "drvGetDevNum",
    "drvGetDeviceLocalIDs",
    "drvDeviceGetPhyIdByIndex",
    "drvDeviceGetIndexByPhyId",
    "halGetDeviceInfo",
    "halGetAPIVersion",
    "drvGetDevIDs",
    "drvGetPlatformInfo",
    "prof_drv_get_channels",
    "prof_drv_start",
    "prof_stop",
    "prof_channel_read",
    "prof_channel_poll",
    "halProfDataFlush",
    "mmSleep",
    "mmUmask",
    "mmOpen2",
    "mmClose",
    "mmRealPath",
    "mmSACleanup",
    "mmGetErrorCode",
    "mmGetErrorFormatMessage",
    "mmCreateTaskWithThreadAttr",
    "mmJoinTask",
    "mmSetCurrentThreadName",
    "mmMutexInit",
    "mmMutexLock",
    "mmMutexUnLock",
    "mmMutexDestroy",
    "mmSemInit",
    "mmSemWait",
    "mmSemPost",
    "mmSemDestroy",
    "mmGetTickCount",
    "mmGetLocalTime",
    "mmCreateProcess",
    "mmWaitPid",
    "mmMkdir",
    "mmChmod",
    "mmChdir",
    "mmRmdir",
    "mmUnlink",
    "mmScandir",
    "mmScandirFree",
    "mmIsDir",
    "mmAccess2",
    "mmStatGet",
    "mmGetFileSize",
    "mmDirName",
    "mmBaseName",
    "IAMResMgrReady",
    "DlogSetAttr",
    "dlog_init",
};

template <typename Number>
bool ToNumber(const std::string& text, Number& number) {
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end && !text.empty();
}

template <typename Number>
bool ToOptional(const std::string& text, std::optional<Number>& number) {
    Number value{};
    if (!ToNumber(text, value)) {
        return false;
    }
    number = value;
    return true;
}

bool ToFlag(const std::string& text, bool& flag) {
    flag = text == "1";
    return text == "0" || text == "1";
}

// "The n-th call", counted from 1.
bool ToCall(const std::string& text, Fault& fault) {
    int number = 0;
    if (!ToNumber(text, number) || number < 1) {
        return false;
    }
    fault.skip = number - 1;
    fault.count = 1;
    return true;
}

bool Set(const std::string& key, const std::string& value, Fault& fault) {
    if (key == "skip") {
        return ToNumber(value, fault.skip) && fault.skip >= 0;
    }
    if (key == "count") {
        return ToNumber(value, fault.count) && fault.count >= -1;
    }
    if (key == "call") {
        return ToCall(value, fault);
    }
    if (key == "result") {
        return ToOptional(value, fault.result);
    }
    if (key == "errno") {
        return ToOptional(value, fault.error);
    }
    if (key == "delay") {
        return ToNumber(value, fault.delayMs);
    }
    if (key == "out") {
        return ToOptional(value, fault.out);
    }
    if (key == "null") {
        return ToFlag(value, fault.null);
    }
    fault.match[key] = value;
    return true;
}

bool IsFunction(const std::string& name) {
    return std::any_of(std::begin(FUNCTIONS), std::end(FUNCTIONS),
                       [&name](const char* known) { return name == known; });
}

// Empty, or what is wrong with the line.
std::string ReadLine(const std::string& line, std::vector<Fault>& faults) {
    std::istringstream words(line);
    std::string word;
    if (!(words >> word) || word[0] == '#') {
        return {};
    }
    if (!IsFunction(word)) {
        return "no such function: " + word;
    }
    Fault fault;
    fault.function = word;
    while (words >> word) {
        const size_t equals = word.find('=');
        if (equals == 0 || equals == std::string::npos ||
            !Set(word.substr(0, equals), word.substr(equals + 1), fault)) {
            return "not a key and its value: " + word;
        }
    }
    if (!fault.Replaces() && fault.delayMs == 0) {
        return "a fault that does nothing: " + line;
    }
    faults.push_back(std::move(fault));
    return {};
}

}  // namespace

std::string ParseFaultPlan(const std::string& text, std::vector<Fault>& faults) {
    std::istringstream lines(text);
    std::vector<Fault> read;
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        const std::string error = ReadLine(line, read);
        if (!error.empty()) {
            return "line " + std::to_string(number) + ": " + error;
        }
    }
    faults = std::move(read);
    return {};
}

}  // namespace tiv::test
