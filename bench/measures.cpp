// The measures that need a whole daemon.
#include "bench/measures.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/daemon_bench.h"
#include "bench/grpc_stream.h"
#include "bench/raw_stream.h"

namespace tiv::bench {
namespace {

constexpr uint64_t WARM_UP = 4ULL << 30;
constexpr uint64_t RAW_BYTES = 8ULL << 30;
constexpr uint64_t GRPC_BYTES = 4ULL << 30;
constexpr uint64_t RAW_PROBE_BYTES = 2ULL << 30;
constexpr uint64_t BURST = 2 * MIB;
constexpr uint64_t PART = 64 * 1024;
constexpr uint64_t HEADER = 72;

struct PathRound {
    double bytesPerSecond = 0;
    double daemonCpuPerGb = 0;
    double hostCpuPerGb = 0;
};

// A stretch of a running channel.
PathRound RunPathRound(BenchDaemon& daemon, BenchJob& job, double seconds) {
    job.StartChannel();
    (void)job.Sink().WaitForBytes(job.Sink().Bytes() + WARM_UP);
    const uint64_t bytesBefore = job.Sink().Bytes();
    const double daemonBefore = daemon.Cpu();
    const double hostBefore = OwnCpu();
    const Clock::time_point start = Clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    const double took = SecondsSince(start);
    const auto bytes = static_cast<double>(job.Sink().Bytes() - bytesBefore);
    const double gigabytes = bytes / GB;
    const PathRound round{bytes / took, (daemon.Cpu() - daemonBefore) / gigabytes,
                          (OwnCpu() - hostBefore) / gigabytes};
    job.StopChannel();
    const uint64_t delivered = daemon.Delivered(0);
    (void)job.Sink().WaitForBytes(delivered);
    if (job.Sink().Bytes() != delivered) {
        throw std::runtime_error("the host has more bytes than the driver handed out");
    }
    return round;
}

void RequireRightNumbers(BenchJob& job) {
    const std::string error = job.Sink().CheckError();
    if (!error.empty()) {
        throw std::runtime_error("wrong numbers: " + error);
    }
}

template <class Record, class Value>
double MedianOf(const std::vector<Record>& records, Value value) {
    std::vector<double> values;
    for (const Record& record : records) {
        values.push_back(value(record));
    }
    return Median(values);
}

struct PathPair {
    PathRound path;
    RawResult raw;
    GrpcResult grpc;  // zeros without the anchor
};

void PrintPath(const std::vector<PathPair>& rounds, size_t writeBytes) {
    std::printf("whole path      %6.2f GB/s   daemon %.3f s/GB   host   %.3f s/GB\n",
                MedianOf(rounds, [](const PathPair& r) { return r.path.bytesPerSecond / GB; }),
                MedianOf(rounds, [](const PathPair& r) { return r.path.daemonCpuPerGb; }),
                MedianOf(rounds, [](const PathPair& r) { return r.path.hostCpuPerGb; }));
    std::printf(
        "raw stream      %6.2f GB/s   sender %.3f s/GB   reader %.3f s/GB   %zu KiB writes\n",
        MedianOf(rounds, [](const PathPair& r) { return r.raw.bytesPerSecond / GB; }),
        MedianOf(rounds, [](const PathPair& r) { return r.raw.senderCpuPerGb; }),
        MedianOf(rounds, [](const PathPair& r) { return r.raw.receiverCpuPerGb; }),
        writeBytes >> 10);
    std::printf("throughput, path / raw:      %.2f\n", MedianOf(rounds, [](const PathPair& r) {
                    return r.path.bytesPerSecond / r.raw.bytesPerSecond;
                }));
    std::printf("CPU per GB, daemon / sender: %.2f\n", MedianOf(rounds, [](const PathPair& r) {
                    return r.path.daemonCpuPerGb / r.raw.senderCpuPerGb;
                }));
}

void PrintGrpc(const std::vector<PathPair>& rounds) {
    std::printf("gRPC stream     %6.2f GB/s   sender %.3f s/GB   reader %.3f s/GB\n",
                MedianOf(rounds, [](const PathPair& r) { return r.grpc.bytesPerSecond / GB; }),
                MedianOf(rounds, [](const PathPair& r) { return r.grpc.senderCpuPerGb; }),
                MedianOf(rounds, [](const PathPair& r) { return r.grpc.receiverCpuPerGb; }));
    std::printf("throughput, path / gRPC:     %.2f\n", MedianOf(rounds, [](const PathPair& r) {
                    return r.path.bytesPerSecond / r.grpc.bytesPerSecond;
                }));
}

// Milliseconds from the start request of a channel that holds one burst to its chunk.
double BurstLatency(BenchJob& job) {
    const uint64_t before = job.Sink().Bytes();
    const Clock::time_point start = Clock::now();
    job.StartChannel();
    const Clock::time_point arrived = job.Sink().WaitForBytes(before + BURST);
    job.StopChannel();
    return std::chrono::duration<double, std::milli>(arrived - start).count();
}

// Milliseconds from the stop request of a channel whose part-filled buffer has been read to the
// chunk.
double StopLatency(BenchJob& job) {
    const uint64_t before = job.Sink().Bytes();
    job.StartChannel();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // the reader takes the part
    const Clock::time_point stop = Clock::now();
    job.StopChannel();
    const Clock::time_point arrived = job.Sink().WaitForBytes(before + PART);
    return std::chrono::duration<double, std::milli>(arrived - stop).count();
}

void MeasureLatencyWith(int busyDevices, uint64_t limit, const char* what,
                        double (*latency)(BenchJob&), int times) {
    std::string devices = CounterDevice(",\"limit_bytes\":" + std::to_string(limit - HEADER));
    for (int i = 0; i < busyDevices; ++i) {
        devices += "," + CounterDevice(R"(,"bytes_per_second":100000000,"burst_bytes":1000000)");
    }
    BenchDaemon daemon(devices, 1 + busyDevices);
    ResultRing ring;
    std::vector<std::unique_ptr<BenchJob>> busy;
    for (int device = 1; device <= busyDevices; ++device) {
        busy.push_back(std::make_unique<BenchJob>(daemon.Link(), device, nullptr));
        busy.back()->OpenJob();
        busy.back()->StartChannel();
    }
    BenchJob job(daemon.Link(), 0, &ring);
    job.OpenJob();
    (void)latency(job);
    std::vector<double> values;
    for (int i = 0; i < times; ++i) {
        values.push_back(latency(job));
    }
    std::sort(values.begin(), values.end());
    std::printf("%-34s %d other devices: median %6.2f ms   90%% %6.2f ms\n", what, busyDevices,
                Median(values), values[values.size() * 9 / 10]);
}

}  // namespace

void MeasurePath(const PathOptions& options) {
    ResultRing ring;
    const size_t writeBytes = FastestWriteSize(RAW_PROBE_BYTES, &ring);
    BenchDaemon daemon(CounterDevice(), 1);
    BenchJob job(daemon.Link(), 0, &ring);
    job.OpenJob();
    job.Sink().SetChecking(true);
    (void)RunPathRound(daemon, job, options.seconds);  // warms up and proves the numbers
    RequireRightNumbers(job);
    job.Sink().SetChecking(options.checkAll);
    std::vector<PathPair> rounds;
    for (int i = 0; i < options.rounds; ++i) {
        PathPair pair;
        pair.path = RunPathRound(daemon, job, options.seconds);
        pair.raw = RunRawStream(RAW_BYTES, writeBytes, &ring);
        if (HasGrpcAnchor()) {
            pair.grpc = RunGrpcStream(GRPC_BYTES);
        }
        rounds.push_back(pair);
        std::printf("round %d: path %.2f GB/s, raw %.2f GB/s, gRPC %.2f GB/s\n", i + 1,
                    pair.path.bytesPerSecond / GB, pair.raw.bytesPerSecond / GB,
                    pair.grpc.bytesPerSecond / GB);
        (void)std::fflush(stdout);
    }
    job.EndJob();
    RequireRightNumbers(job);
    PrintPath(rounds, writeBytes);
    if (HasGrpcAnchor()) {
        PrintGrpc(rounds);
    }
    std::printf("peak memory of the daemon: %lu MiB\n",
                static_cast<unsigned long>(StatusNumber(daemon.Pid(), "VmHWM") / 1024));
}

void MeasureLatency(const PathOptions& options) {
    for (const int others : {0, 7}) {
        MeasureLatencyWith(others, BURST, "start request to 2 MiB burst,", BurstLatency,
                           options.bursts);
        MeasureLatencyWith(others, PART, "stop request to 64 KiB,", StopLatency, options.bursts);
    }
}

}  // namespace tiv::bench
