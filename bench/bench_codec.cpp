// Measure 1: a 4 MiB chunk to its packet and back, against one memcpy of 4 MiB.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "bench/usage.h"
#include "hdc/chunk_packet.h"
#include "host/file_chunk_view.h"

namespace {

using analysis::rokt::ProfileFileChunk;
using analysis::rokt::transport::ChunkPacket;
using tiv::bench::Clock;
using tiv::bench::Median;
using tiv::bench::SecondsSince;

constexpr size_t CHUNK_BYTES = 4U << 20;
constexpr int BATCH = 32;

ProfileFileChunk MakeChunk() {
    ProfileFileChunk chunk;
    chunk.chunk.assign(CHUNK_BYTES, 'x');
    chunk.chunkSize = CHUNK_BYTES;
    chunk.chunkModule = 3;
    chunk.offset = -1;
    chunk.fileName = "data/llc.data.null";
    chunk.extraInfo = "job.0";
    return chunk;
}

template <class Step>
double SecondsOf(Step step) {
    const Clock::time_point start = Clock::now();
    for (int i = 0; i < BATCH; ++i) {
        step();
    }
    return SecondsSince(start);
}

// The packet's bytes as the host takes them: found in place and copied once into the result.
bool Decode(const ChunkPacket& packet, std::vector<char>& result) {
    tiv::host::FrameView frame;
    tiv::host::FileChunkView view;
    if (!tiv::host::ParseFrame({packet.Packet()->value, packet.Packet()->len}, frame) ||
        !tiv::host::ParseFileChunk(frame.body, view) || view.chunk.size() != result.size()) {
        return false;
    }
    memcpy(result.data(), view.chunk.data(), view.chunk.size());
    benchmark::ClobberMemory();
    return true;
}

// Each iteration is one round: memcpy, encoding and decoding in turn.
void CodecAgainstMemcpy(benchmark::State& state) {
    const ProfileFileChunk chunk = MakeChunk();
    std::vector<char> result(CHUNK_BYTES);
    ChunkPacket packet;
    if (packet.Build(chunk) != 0 || !Decode(packet, result)) {
        state.SkipWithError("the chunk does not come back");
        return;
    }
    std::vector<double> copies;
    std::vector<double> encodeRatios;
    std::vector<double> decodeRatios;
    for (auto _ : state) {
        const double copy = SecondsOf([&] {
            memcpy(result.data(), chunk.chunk.data(), CHUNK_BYTES);
            benchmark::ClobberMemory();
        });
        const double encode = SecondsOf([&] {
            benchmark::DoNotOptimize(packet.Build(chunk));
            benchmark::ClobberMemory();
        });
        const double decode = SecondsOf([&] { benchmark::DoNotOptimize(Decode(packet, result)); });
        copies.push_back(copy);
        encodeRatios.push_back(copy / encode);
        decodeRatios.push_back(copy / decode);
    }
    const double copyRate = BATCH * static_cast<double>(CHUNK_BYTES) / Median(copies) / 1e9;
    state.counters["memcpy_GBs"] = copyRate;
    state.counters["encode_ratio"] = Median(encodeRatios);
    state.counters["decode_ratio"] = Median(decodeRatios);
}

}  // namespace

BENCHMARK(CodecAgainstMemcpy)->Iterations(50)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
