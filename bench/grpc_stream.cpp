// Runs the gRPC anchor, where it was built.
#include "bench/grpc_stream.h"

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "bench/usage.h"
#include "support/temp_dir.h"

namespace tiv::bench {

#ifdef TIV_GRPC_ANCHOR

bool HasGrpcAnchor() { return true; }

GrpcResult RunGrpcStream(uint64_t bytes) {
    const test::TempDir directory;
    const std::string command =
        std::string(TIV_GRPC_ANCHOR) + " " + directory.Path("s") + " " + std::to_string(bytes);
    const std::unique_ptr<FILE, int (*)(FILE*)> output(popen(command.c_str(), "r"), pclose);
    GrpcResult result;
    if (output == nullptr || fscanf(output.get(), "%lf %lf %lf", &result.bytesPerSecond,
                                    &result.senderCpuPerGb, &result.receiverCpuPerGb) != 3) {
        throw std::runtime_error("the gRPC anchor failed");
    }
    const double gigabytes = static_cast<double>(bytes) / GB;
    result.senderCpuPerGb /= gigabytes;
    result.receiverCpuPerGb /= gigabytes;
    return result;
}

#else

bool HasGrpcAnchor() { return false; }

GrpcResult RunGrpcStream(uint64_t) { throw std::runtime_error("the gRPC anchor was not built"); }

#endif

}  // namespace tiv::bench
