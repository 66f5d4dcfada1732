// Timing statistics of one repeated operation.
#include "common/perf_count.h"

#include "platform/log.h"

namespace Analysis::Rokt::Common::Statistics {

namespace {

constexpr uint64_t NS_PER_MS = 1000000;

}  // namespace

PerfCount::PerfCount(const std::string& name) : moduleName(name) {}

PerfCount::PerfCount(const std::string& name, uint64_t frequency)
    : moduleName(name), printFrequency(frequency) {}

void PerfCount::UpdatePerfInfo(uint64_t startTimeNs, uint64_t endTimeNs, uint64_t bytes) {
    if (startTimeNs > endTimeNs) {
        TIV_LOGE("[UpdatePerfInfo] startTime:%luns is larger than endTime:%luns", startTimeNs,
                 endTimeNs);
        return;
    }
    tiv::MutexLock lock(mutex);
    lastTime = endTimeNs;
    if (firstTime == 0) {
        firstTime = startTimeNs;
    }
    const uint64_t span = endTimeNs - startTimeNs;
    if (span > overHeadWaterLine) {
        ++exceedWaterLineCounter;
    }
    overheadMin = span < overheadMin ? span : overheadMin;
    overheadMax = span > overheadMax ? span : overheadMax;
    overheadSum += span;
    ++packageNums;
    packageSize += bytes;
    if (printFrequency != 0 && packageNums % printFrequency == 0) {
        Print(moduleName);
        Reset();
    }
}

void PerfCount::OutPerfInfo(const std::string& name) {
    const std::string printName = name.empty() ? moduleName : name;
    tiv::MutexLock lock(mutex);
    Print(printName);
}

void PerfCount::ResetPerfInfo() {
    tiv::MutexLock lock(mutex);
    Reset();
}

// The number behind the throughput's point is the remainder of the division, no decimal fraction;
// the readers of these lines know it so.
void PerfCount::Print(const std::string& name) const {
    const uint64_t sumMs = overheadSum / NS_PER_MS;
    if (packageNums == 0 || sumMs == 0) {
        return;
    }
    TIV_LOGI(
        "moduleName: %s, overhead Min: %lu ns, overhead Max: %lu ns, overhead Avg: %lu ns, "
        "overhead Sum_: %lu ns, package nums: %lu, package size: %lu, throughput: %lu.%lu B/ms",
        name.c_str(), overheadMin, overheadMax, overheadSum / packageNums, overheadSum, packageNums,
        packageSize, packageSize / sumMs, packageSize % sumMs);
    TIV_LOGI("moduleName: %s, overHeadWaiterLine: %lu, exceedWaterLineCounter: %lu", name.c_str(),
             overHeadWaterLine, exceedWaterLineCounter);
}

void PerfCount::Reset() {
    overheadMin = UINT64_MAX;
    overheadMax = 0;
    overheadSum = 0;
    packageNums = 0;
    firstTime = 0;
    lastTime = 0;
    packageSize = 0;
    exceedWaterLineCounter = 0;
}

}  // namespace Analysis::Rokt::Common::Statistics
