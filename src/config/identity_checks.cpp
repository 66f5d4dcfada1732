// The checks of ParamValidation that the daemon makes itself: who a job is and how many events it
// brings.
#include <algorithm>
#include <cstdlib>

#include "common/utils.h"
#include "config/ascii_chars.h"
#include "config/param_validation.h"
#include "platform/log.h"

namespace analysis::rokt::common::validation {

namespace {

constexpr int32_t MAX_EVENT_SIZE = 8;
constexpr long MAX_DEVICE_ID = 63;
constexpr std::size_t MAX_JOB_ID_LEN = 512;

bool IsLlcEventChar(char c) {
    return IsAsciiLetterOrDigit(c) || c == '_' || c == '/' || c == ',' || c == ' ';
}

bool IsJobIdChar(char c) { return IsAsciiLetterOrDigit(c) || c == '-'; }

bool NamesEvent(const std::string& event) { return event.find("0x") != std::string::npos; }

}  // namespace

bool ParamValidation::CheckEventSizeIsValid(int32_t eventSize) const {
    TIV_LOGD("eventSize: %d", eventSize);
    return eventSize <= MAX_EVENT_SIZE;
}

bool ParamValidation::CheckCtrlCpuEventIsValid(const std::vector<std::string>& events) const {
    if (!CheckEventSizeIsValid(static_cast<int32_t>(events.size()))) {
        TIV_LOGE("cpu events size(%zu) is bigger than %d", events.size(), MAX_EVENT_SIZE);
        return false;
    }
    return std::all_of(events.begin(), events.end(), NamesEvent);
}

bool ParamValidation::CheckLlcEventsIsValid(const std::string& events) const {
    if (!std::all_of(events.begin(), events.end(), IsLlcEventChar)) {
        TIV_LOGE("llc events is invalid.%s", events.c_str());
        return false;
    }
    TIV_LOGD("llc events is %s", events.c_str());
    return true;
}

bool ParamValidation::CheckDeviceIdIsValid(const std::string& devId) const {
    if (!utils::Utils::CheckStringIsNonNegativeIntNum(devId)) {
        TIV_LOGE("devId(%s) is not valid.", devId.c_str());
        return false;
    }
    if (std::strtol(devId.c_str(), nullptr, 10) > MAX_DEVICE_ID) {
        TIV_LOGW("devId(%s) is over limited.", devId.c_str());
        return false;
    }
    return true;
}

bool ParamValidation::CheckJobIdIsValid(const std::string& jobId) const {
    return !jobId.empty() && jobId.size() <= MAX_JOB_ID_LEN &&
           std::all_of(jobId.begin(), jobId.end(), IsJobIdChar);
}

bool ParamValidation::CheckProfilingModeIsValid(const std::string& mode) const {
    return mode.empty() || mode == "def_mode" || mode == "system-wide";
}

}  // namespace analysis::rokt::common::validation
