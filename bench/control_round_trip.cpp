// Measures the answer to a job start over 1000 jobs, each on sessions of its own.
//
// usage: bench_control_round_trip [jobs]      a daemon serves device 0
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/control_session.h"
#include "host/data_session.h"
#include "host/device_link.h"

namespace {

using namespace tiv::host;
using Clock = std::chrono::steady_clock;

constexpr int DEFAULT_JOBS = 1000;

class NoSink : public ChunkSink {
 public:
    bool OnChunk(const ReceivedChunk&) override { return true; }
};

// Runs one job and gives the microseconds from its start request to the answer; negative when a
// step failed.
double TimeOneJob(DeviceLink& link, const std::string& jobId) {
    std::string error;
    NoSink sink;
    auto first = link.Connect(0, error);
    auto second = link.Connect(0, error);
    if (first == nullptr || second == nullptr) {
        fmt::print(stderr, "{}\n", error);
        return -1;
    }
    ControlSession control(0, jobId, first);
    DataSession data(0, jobId, second, sink);
    Reply reply = control.Handshake();
    if (!reply.Accepted() || !data.Handshake().Accepted()) {
        return -1;
    }
    const auto start = Clock::now();
    reply = control.StartJob("{\"job_id\":\"" + jobId + "\"}");
    const double micros = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
    const bool stopped = control.SendStopJob() &&
                         control.WaitForReply(std::chrono::seconds(30)).Accepted() &&
                         data.WaitForEnd(std::chrono::seconds(30)) == DataSession::State::COMPLETE;
    return reply.Accepted() && stopped ? micros : -1;
}

// The receiver of the job before may still be on its way out: the device refuses until it is gone.
double TimeOneJobPatiently(DeviceLink& link, const std::string& jobId) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        const double micros = TimeOneJob(link, jobId + "-" + std::to_string(attempt));
        if (micros >= 0) {
            return micros;
        }
    }
    return -1;
}

}  // namespace

int main(int argc, char** argv) {
    const int jobs = argc > 1 ? std::atoi(argv[1]) : DEFAULT_JOBS;
    DeviceLink link(std::chrono::seconds(20));
    std::vector<double> times;
    for (int i = 0; i < jobs; ++i) {
        const double micros = TimeOneJobPatiently(link, "round-trip-" + std::to_string(i));
        if (micros < 0) {
            fmt::print(stderr, "job {} failed\n", i);
            return 1;
        }
        times.push_back(micros);
    }
    std::sort(times.begin(), times.end());
    const auto at = [&](double share) {
        return times[static_cast<size_t>(share * static_cast<double>(times.size() - 1))];
    };
    fmt::print(
        "job start to answer over {} jobs: median {:.0f} us, 99 % {:.0f} us, max {:.0f} us\n",
        times.size(), at(0.5), at(0.99), times.back());
    return 0;
}
