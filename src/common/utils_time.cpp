// Time, and the names that are made from it.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "common/utils.h"
#include "platform/bounds_checked.h"
#include "platform/log.h"

namespace analysis::rokt::common::utils {

namespace {

constexpr uint64_t NS_PER_SECOND = 1000000000;
constexpr uint32_t US_PER_MS = 1000;
constexpr const char* NO_TIME = "0-0-0 0:0:0.0";
constexpr size_t TIME_TEXT_SIZE = 32;
constexpr uint64_t RESULT_ID_MODULUS = 999999;
constexpr size_t RESULT_ID_WIDTH = 6;
constexpr size_t PID_WIDTH = 8;
constexpr const char* HOST_DEVICE = "64";

// Year to milliseconds without separators.
std::string LocalTimeText() {
    mmSystemTime now = {};
    if (mmGetLocalTime(&now) != 0) {
        TIV_LOGW("Get time failed");
        now = {};
    }
    char text[TIME_TEXT_SIZE] = "";
    if (sprintf_s(text, sizeof(text), "%04d%02d%02d%02d%02d%02d%03d", now.wYear, now.wMonth,
                  now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds) < 0) {
        TIV_LOGW("Format time failed");
        return "";
    }
    return text;
}

}  // namespace

uint64_t Utils::GetClockMonotonicRaw() {
    const mmTimespec now = mmGetTickCount();
    return static_cast<uint64_t>(now.tv_sec) * NS_PER_SECOND + static_cast<uint64_t>(now.tv_nsec);
}

void Utils::SleepUs(uint32_t microSeconds) { (void)mmSleep(microSeconds / US_PER_MS); }

std::string Utils::TimestampToText(const std::string& text, uint64_t divisor) {
    if (text.empty() || divisor == 0 || text.find_first_not_of("0123456789") != std::string::npos) {
        return NO_TIME;
    }
    const uint64_t value = std::strtoull(text.c_str(), nullptr, 10);
    const auto seconds = static_cast<time_t>(value / divisor);
    const auto rest = static_cast<uint32_t>(value % divisor);
    struct tm local = {};
    if (seconds < 0 || localtime_r(&seconds, &local) == nullptr) {
        return NO_TIME;
    }
    char date[TIME_TEXT_SIZE] = "";
    (void)strftime(date, sizeof(date), "%Y-%m-%d %H:%M:%S", &local);
    char fraction[TIME_TEXT_SIZE] = "";
    (void)sprintf_s(fraction, sizeof(fraction), ".%06u", rest);
    return std::string(date) + fraction;
}

std::string Utils::CreateResultPath(uint64_t id, const std::string& pidText) {
    const std::string number = std::to_string(id % RESULT_ID_MODULUS + 1);
    std::string name = "PROF_" + LeftPad(number, RESULT_ID_WIDTH) + "_";
    name += LocalTimeText() + "_";
    name += LeftPad(std::to_string(getpid()), PID_WIDTH);
    name += pidText;
    TIV_LOGI("Created output dir name %s", name.c_str());
    return name;
}

std::string Utils::CreateTaskId(const std::string& device) {
    std::string id = device == HOST_DEVICE ? "host" : "device_" + device;
    TIV_LOGI("[ZELNAR][ProfStart] created task id %s of device %s", id.c_str(), device.c_str());
    return id;
}

}  // namespace analysis::rokt::common::utils
