// Measure 2: 4 MiB buffers from HdcWrite to HdcRead between two processes, against a raw stream.
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "bench/raw_stream.h"
#include "bench/usage.h"
#include "common/memory_utils.h"
#include "hdc/hdc_api.h"

namespace {

using tiv::bench::Clock;
using tiv::bench::GB;
using tiv::bench::Median;
using tiv::bench::SecondsSince;

constexpr int SERVICE = 4;
constexpr uint32_t BUFFER_BYTES = 4U << 20;
constexpr int BUFFERS = 256;
constexpr uint64_t ROUND_BYTES = static_cast<uint64_t>(BUFFERS) * BUFFER_BYTES;

// The writing process: a round of buffers for every byte that comes in.
[[noreturn]] void WriteRounds(const char* directory) {
    (void)setenv("TIV_RUNTIME_DIR", directory, 1);
    const HDC_SERVER server = HdcServerCreate(0, SERVICE);
    const HDC_SESSION session = server == nullptr ? nullptr : HdcServerAccept(server);
    std::vector<char> bytes(BUFFER_BYTES, 'x');
    void* order = nullptr;
    uint32_t length = 0;
    while (session != nullptr && HdcRead(session, &order, &length) == 0) {
        IdeXfree(order);
        for (int i = 0; i < BUFFERS; ++i) {
            if (HdcWrite(session, bytes.data(), static_cast<int32_t>(BUFFER_BYTES)) != 0) {
                _exit(1);
            }
        }
    }
    _exit(0);
}

HDC_SESSION ConnectSoon(HDC_CLIENT client) {
    HDC_SESSION session = nullptr;
    for (int i = 0; i < 200 && HdcSessionConnect(0, 0, client, &session) != 0; ++i) {
        (void)usleep(10000);
    }
    return session;
}

// Bytes per second of one round; 0 when it failed.
double LinkRound(HDC_SESSION session) {
    const Clock::time_point start = Clock::now();
    if (HdcWrite(session, "g", 1) != 0) {
        return 0;
    }
    for (int i = 0; i < BUFFERS; ++i) {
        void* buffer = nullptr;
        uint32_t length = 0;
        if (HdcRead(session, &buffer, &length) != 0 || length != BUFFER_BYTES) {
            return 0;
        }
        IdeXfree(buffer);
    }
    return static_cast<double>(ROUND_BYTES) / SecondsSince(start);
}

void LinkAgainstRawStream(benchmark::State& state, HDC_SESSION session) {
    std::vector<double> links;
    std::vector<double> raws;
    std::vector<double> ratios;
    (void)LinkRound(session);  // warms up
    for (auto _ : state) {
        const double link = LinkRound(session);
        const double raw =
            tiv::bench::RunRawStream(ROUND_BYTES, BUFFER_BYTES, nullptr).bytesPerSecond;
        if (link == 0) {
            state.SkipWithError("the link failed");
            return;
        }
        links.push_back(link);
        raws.push_back(raw);
        ratios.push_back(link / raw);
    }
    state.counters["link_GBs"] = Median(links) / GB;
    state.counters["raw_GBs"] = Median(raws) / GB;
    state.counters["ratio"] = Median(ratios);
}

}  // namespace

int main(int argc, char** argv) {
    char directory[] = "/tmp/tiv-bench-XXXXXX";
    if (mkdtemp(directory) == nullptr) {
        return 1;
    }
    const pid_t writer = fork();
    if (writer == 0) {
        WriteRounds(directory);
    }
    (void)setenv("TIV_RUNTIME_DIR", directory, 1);
    HDC_CLIENT client = HdcClientInit(SERVICE);
    HDC_SESSION session = ConnectSoon(client);
    benchmark::Initialize(&argc, argv);
    benchmark::RegisterBenchmark("LinkAgainstRawStream", LinkAgainstRawStream, session)
        ->Iterations(15)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    if (session != nullptr) {
        benchmark::RunSpecifiedBenchmarks();
        (void)HdcSessionClose(session);
    }
    (void)HdcClientDestroy(client);
    (void)kill(writer, SIGKILL);
    (void)waitpid(writer, nullptr, 0);
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
    return session == nullptr ? 1 : 0;
}
