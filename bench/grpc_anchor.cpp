// The other anchor: a gRPC server stream of 4 MiB messages over a Unix socket between two
// processes.
//
// usage: grpc_anchor SOCKET BYTES     prints "<bytes per second> <sender's CPU s> <receiver's CPU
// s>"
#include <grpcpp/grpcpp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "anchor.grpc.pb.h"
#include "bench/result_ring.h"
#include "bench/usage.h"

namespace tiv::bench {
namespace {

constexpr size_t MESSAGE = 4 * MIB;

// Numbers that rise by one, as the counter channel has them.
void FillNumbers(std::string& data, uint64_t& next) {
    data.resize(MESSAGE);
    char* out = data.data();
    for (size_t at = 0; at < MESSAGE; at += sizeof(next)) {
        std::memcpy(out + at, &next, sizeof(next));
        ++next;
    }
}

class AnchorService final : public Anchor::Service {
    grpc::Status Stream(grpc::ServerContext* context, const StreamRequest* request,
                        grpc::ServerWriter<StreamChunk>* writer) override {
        (void)context;
        StreamChunk chunk;
        uint64_t next = 0;
        for (uint64_t sent = 0; sent < request->bytes(); sent += MESSAGE) {
            FillNumbers(*chunk.mutable_data(), next);
            if (!writer->Write(chunk)) {
                return {grpc::StatusCode::UNAVAILABLE, "the receiver has gone"};
            }
        }
        return grpc::Status::OK;
    }
};

// In the child, until it is killed.
[[noreturn]] void Serve(const std::string& address) {
    (void)prctl(PR_SET_PDEATHSIG, SIGTERM);
    AnchorService service;
    grpc::ServerBuilder builder;
    builder.AddListeningPort(address, grpc::InsecureServerCredentials());
    builder.RegisterService(&service);
    const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (server == nullptr) {
        _exit(1);
    }
    server->Wait();
    _exit(0);
}

bool Receive(const std::string& address, uint64_t bytes, ResultRing& ring) {
    grpc::ChannelArguments arguments;
    arguments.SetMaxReceiveMessageSize(-1);
    const auto channel =
        grpc::CreateCustomChannel(address, grpc::InsecureChannelCredentials(), arguments);
    const std::unique_ptr<Anchor::Stub> stub = Anchor::NewStub(channel);
    grpc::ClientContext context;
    context.set_wait_for_ready(true);
    StreamRequest request;
    request.set_bytes(bytes);
    const auto reader = stub->Stream(&context, request);
    StreamChunk chunk;
    uint64_t received = 0;
    while (reader->Read(&chunk)) {
        received += chunk.data().size();
        if (!ring.Write(chunk.data())) {
            return false;
        }
    }
    return reader->Finish().ok() && received == bytes;
}

double CpuOfEnded(pid_t child) {
    rusage usage{};
    (void)kill(child, SIGTERM);
    (void)wait4(child, nullptr, 0, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

int Run(const std::string& socketPath, uint64_t bytes) {
    const std::string address = "unix:" + socketPath;
    // Before the library's first call: its threads don't survive a fork.
    const pid_t child = fork();
    if (child == 0) {
        Serve(address);
    }
    ResultRing ring;
    const bool warm = Receive(address, 256 * MIB, ring);
    const double cpuBefore = OwnCpu();
    const double senderBefore = CpuOf(child);
    const Clock::time_point start = Clock::now();
    const bool good = warm && Receive(address, bytes, ring);
    const double seconds = SecondsSince(start);
    const double receiverCpu = OwnCpu() - cpuBefore;
    const double senderCpu = CpuOfEnded(child) - senderBefore;
    if (!good) {
        (void)std::fputs("grpc_anchor: the stream broke\n", stderr);
        return 1;
    }
    std::printf("%.0f %.3f %.3f\n", static_cast<double>(bytes) / seconds, senderCpu, receiverCpu);
    return 0;
}

}  // namespace
}  // namespace tiv::bench

int main(int argc, char** argv) {
    const uint64_t bytes = argc == 3 ? std::strtoull(argv[2], nullptr, 10) : 0;
    if (bytes == 0 || bytes % tiv::bench::MESSAGE != 0) {
        (void)std::fputs("usage: grpc_anchor SOCKET BYTES     (a multiple of 4 MiB)\n", stderr);
        return 2;
    }
    return tiv::bench::Run(argv[1], bytes);
}
