// Periodic readings of the machine's own counters.
#include "soft_driver/perf_source.h"

#include <endian.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "soft_driver/channel_writer.h"
#include "soft_driver/notices.h"

namespace tiv::soft_driver {
namespace {

constexpr uint32_t RECORD_BYTES = 24;
constexpr uint32_t ALL_ONES = UINT32_MAX;
constexpr uint32_t RAW_MONOTONIC_CLOCK = 4;
constexpr uint32_t LLC_CHANNEL = 8;
constexpr uint32_t LLC_READ = 1;
constexpr uint32_t LLC_WRITE = 2;

uint64_t RawNanoseconds() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

template <class Number>
void AppendBytes(std::string* bytes, Number wire) {
    bytes->append(reinterpret_cast<const char*>(&wire), sizeof(wire));
}

}  // namespace

// The start of the cache channel says which side it wants; a list of the configuration stands.
void PerfSource::SelectEvents(const StartRecord& start) {
    events_ = settings_.events;
    if (!settings_.eventsAreDefault || channelId_ != LLC_CHANNEL || start.words.size() < 2) {
        return;
    }
    if (start.words[1] == LLC_READ) {
        events_ = {"LLC-loads"};
    } else if (start.words[1] == LLC_WRITE) {
        events_ = {"LLC-stores"};
    }
}

bool PerfSource::Prepare(const StartRecord& start) {
    periodMs_ = start.periodMs != 0 ? start.periodMs : settings_.periodMs;
    SelectEvents(start);
    const std::string failed = counters_.Open(events_);
    if (failed.empty()) {
        return true;
    }
    const int error = errno;
    Warn(
        "perf source cannot start: channel=%u event=%s: %s; name events that this machine has "
        "under \"events\" in the file of TIV_DRIVER_CONFIG, or permit system-wide counting with "
        "kernel.perf_event_paranoid=0 or CAP_PERFMON",
        channelId_, failed.c_str(), ErrorText(error).c_str());
    errno = error;
    return false;
}

SourceDescription PerfSource::Describe() const {
    return {RAW_MONOTONIC_CLOCK, periodMs_, RECORD_BYTES, events_};
}

void PerfSource::Run(ChannelWriter& writer) {
    const std::chrono::milliseconds period(periodMs_);
    (void)counters_.Read();  // what was counted before the first period is nobody's
    ReadySet::Clock::time_point due = ReadySet::Clock::now() + period;
    while (writer.SleepUntil(due)) {
        const uint64_t now = RawNanoseconds();
        BuildRecords(now);
        Deliver(writer, now);
        due = std::max(due + period, ReadySet::Clock::now());
    }
}

void PerfSource::BuildRecords(uint64_t now) {
    records_.clear();
    recordCount_ = 0;
    if (settings_.perCpu) {
        for (const CounterStep& step : counters_.Read()) {
            AppendRecord(now, step.event, step.cpu, step.count);
        }
    } else {
        AppendSums(now);
    }
}

// Steps come sorted by event.
void PerfSource::AppendSums(uint64_t now) {
    const std::vector<CounterStep>& steps = counters_.Read();
    for (size_t i = 0; i < steps.size();) {
        const uint32_t event = steps[i].event;
        uint64_t sum = 0;
        for (; i < steps.size() && steps[i].event == event; ++i) {
            sum += steps[i].count;
        }
        AppendRecord(now, event, ALL_ONES, sum);
    }
}

void PerfSource::AppendRecord(uint64_t now, uint32_t event, uint32_t cpu, uint64_t count) {
    AppendBytes(&records_, htole64(now));
    AppendBytes(&records_, htole32(event));
    AppendBytes(&records_, htole32(cpu));
    AppendBytes(&records_, htole64(count));
    ++recordCount_;
}

void PerfSource::Deliver(ChannelWriter& writer, uint64_t now) {
    const uint64_t fresh = recordCount_;
    std::string bytes;
    if (untold_ > 0) {
        bytes.swap(records_);
        AppendRecord(now, ALL_ONES, ALL_ONES, untold_);
        records_ += bytes;
    }
    if (writer.TryAppend(records_.data(), records_.size())) {
        untold_ = 0;
        return;
    }
    if (dropped_ == 0) {
        Warn("records are dropped: channel=%u: its ring is full", channelId_);
    }
    dropped_ += fresh;
    untold_ += fresh;
}

}  // namespace tiv::soft_driver
