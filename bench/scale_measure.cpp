// Many devices at once: throughput, and whether each gets its share.
#include <algorithm>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "bench/daemon_bench.h"
#include "bench/measures.h"

namespace tiv::bench {
namespace {

constexpr uint64_t MOST_MEMORY_KIB = 10ULL << 20;

using BenchJobs = std::vector<std::unique_ptr<BenchJob>>;

// What came from the devices in the timed part of a round.
struct ScaleRound {
    double firstPerSecond = 0;  // bytes of the part before, in which a single queue fills up
    double bytesPerSecond = 0;
    double queuedPerSecond = 0;  // what readers took ahead of the link: the daemon's growth
    std::vector<uint64_t> came;  // bytes of each device
    uint64_t threads = 0;
    uint64_t peakKib = 0;
};

// All rounds of one number of devices.
struct ScaleCase {
    int devices = 0;
    std::vector<ScaleRound> rounds;
    std::vector<double> ratios;       // throughput of one device's, by round
    std::vector<double> likeForLike;  // throughput of one device's whose queue fills up, by round
};

std::string ManyDevices(int count) {
    std::string devices = CounterDevice();
    for (int i = 1; i < count; ++i) {
        devices += "," + CounterDevice();
    }
    return devices;
}

std::vector<uint64_t> BytesOf(const BenchJobs& jobs) {
    std::vector<uint64_t> bytes;
    for (const auto& job : jobs) {
        bytes.push_back(job->Sink().Bytes());
    }
    return bytes;
}

uint64_t SumOf(const std::vector<uint64_t>& values) {
    return std::accumulate(values.begin(), values.end(), uint64_t{0});
}

double LeastOfMost(const std::vector<uint64_t>& values) {
    return static_cast<double>(*std::min_element(values.begin(), values.end())) /
           static_cast<double>(*std::max_element(values.begin(), values.end()));
}

BenchJobs OpenJobs(BenchDaemon& daemon, int devices) {
    BenchJobs jobs;
    for (int device = 0; device < devices; ++device) {
        jobs.push_back(std::make_unique<BenchJob>(daemon.Link(), device, nullptr));
        jobs.back()->OpenJob();
    }
    return jobs;
}

// At once: a channel that starts late has less time than the others.
void StartAll(const BenchJobs& jobs) {
    std::vector<std::future<void>> starts;
    for (const auto& job : jobs) {
        starts.push_back(std::async(std::launch::async, [&job] { job->StartChannel(); }));
    }
    for (std::future<void>& start : starts) {
        start.get();
    }
}

// Waits until `bytes` more have come from all devices together. Readers that run ahead of the link
// fill the daemon's queues: before these fill the machine, the wait ends.
void WaitForMore(const BenchDaemon& daemon, const BenchJobs& jobs, uint64_t bytes) {
    const uint64_t enough = SumOf(BytesOf(jobs)) + bytes;
    while (SumOf(BytesOf(jobs)) < enough && StatusNumber(daemon.Pid(), "VmRSS") < MOST_MEMORY_KIB) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// Warms up; what arrives per second meanwhile.
double RunFirstPart(const BenchDaemon& daemon, const BenchJobs& jobs, uint64_t bytes) {
    const uint64_t before = SumOf(BytesOf(jobs));
    const Clock::time_point start = Clock::now();
    WaitForMore(daemon, jobs, bytes);
    return static_cast<double>(SumOf(BytesOf(jobs)) - before) / SecondsSince(start);
}

// What arrives while every channel runs at full speed.
ScaleRound RunRound(int devices, uint64_t allBytes) {
    BenchDaemon daemon(ManyDevices(devices), devices);
    const BenchJobs jobs = OpenJobs(daemon, devices);
    StartAll(jobs);
    ScaleRound round;
    round.firstPerSecond = RunFirstPart(daemon, jobs, allBytes / 4);
    round.threads = StatusNumber(daemon.Pid(), "Threads");
    const std::vector<uint64_t> before = BytesOf(jobs);
    const uint64_t kibBefore = StatusNumber(daemon.Pid(), "VmRSS");
    const Clock::time_point start = Clock::now();
    WaitForMore(daemon, jobs, allBytes);
    round.came = BytesOf(jobs);
    const double seconds = SecondsSince(start);
    const uint64_t grown = std::max(StatusNumber(daemon.Pid(), "VmRSS"), kibBefore) - kibBefore;
    std::transform(round.came.begin(), round.came.end(), before.begin(), round.came.begin(),
                   std::minus<>());
    round.bytesPerSecond = static_cast<double>(SumOf(round.came)) / seconds;
    round.queuedPerSecond = static_cast<double>(grown) * 1024 / seconds;
    round.peakKib = StatusNumber(daemon.Pid(), "VmHWM");
    daemon.Kill();
    return round;
}

// One device alone is the measure of the round.
void RunCases(std::vector<ScaleCase>& cases, uint64_t allBytes) {
    for (ScaleCase& next : cases) {
        next.rounds.push_back(RunRound(next.devices, allBytes));
        const ScaleRound& one = cases.front().rounds.back();
        const double came = next.rounds.back().bytesPerSecond;
        next.ratios.push_back(came / one.bytesPerSecond);
        next.likeForLike.push_back(came / one.firstPerSecond);
    }
}

// What came from each device in all rounds.
std::vector<uint64_t> AllCame(const std::vector<ScaleRound>& rounds) {
    std::vector<uint64_t> sum(rounds.front().came.size());
    for (const ScaleRound& round : rounds) {
        std::transform(sum.begin(), sum.end(), round.came.begin(), sum.begin(), std::plus<>());
    }
    return sum;
}

template <class Value>
double MedianOf(const std::vector<ScaleRound>& rounds, Value value) {
    std::vector<double> values;
    for (const ScaleRound& round : rounds) {
        values.push_back(value(round));
    }
    return Median(values);
}

void PrintCase(const ScaleCase& shown) {
    const auto rate = [](const ScaleRound& round) { return round.bytesPerSecond / GB; };
    const auto queued = [](const ScaleRound& round) { return round.queuedPerSecond / GB; };
    const auto fairness = [](const ScaleRound& round) { return LeastOfMost(round.came); };
    std::printf(
        "%2d devices: %5.2f GB/s (%.2f of one, %.2f of one that fills its queue) and %.2f queued   "
        "least/most served %.2f in a round, %.2f in all   %lu threads   peak %lu MiB\n",
        shown.devices, MedianOf(shown.rounds, rate), Median(shown.ratios),
        Median(shown.likeForLike), MedianOf(shown.rounds, queued), MedianOf(shown.rounds, fairness),
        LeastOfMost(AllCame(shown.rounds)), static_cast<unsigned long>(shown.rounds.back().threads),
        static_cast<unsigned long>(shown.rounds.back().peakKib / 1024));
}

}  // namespace

void MeasureScale(const PathOptions& options) {
    (void)RunRound(1, options.scaleBytes);  // warms up
    std::vector<ScaleCase> cases;
    for (const int devices : options.devices) {
        cases.push_back({devices, {}, {}, {}});
    }
    for (int i = 0; i < options.rounds; ++i) {
        RunCases(cases, options.scaleBytes);
        std::printf("round %d", i + 1);
        for (const ScaleCase& done : cases) {
            const ScaleRound& last = done.rounds.back();
            std::printf("  %d: %.2f, then %.2f GB/s, %.2f", done.devices, last.firstPerSecond / GB,
                        last.bytesPerSecond / GB, LeastOfMost(last.came));
        }
        std::printf("\n");
        (void)std::fflush(stdout);
    }
    for (const ScaleCase& done : cases) {
        PrintCase(done);
    }
}

}  // namespace tiv::bench
