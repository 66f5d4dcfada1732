// The anchor: bytes through a plain Unix stream between two processes.
#include "bench/raw_stream.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/usage.h"

namespace tiv::bench {
namespace {

constexpr int SOCKET_BUFFER = 1 << 20;
constexpr size_t LEAST_WRITE = 64U << 10;
constexpr size_t MOST_WRITE = 1U << 20;

void Require(bool good, const char* what) {
    if (!good) {
        throw std::runtime_error(std::string("raw stream: ") + what);
    }
}

void SetBuffer(int fd, int forced, int plain) {
    if (setsockopt(fd, SOL_SOCKET, forced, &SOCKET_BUFFER, sizeof(SOCKET_BUFFER)) != 0) {
        (void)setsockopt(fd, SOL_SOCKET, plain, &SOCKET_BUFFER, sizeof(SOCKET_BUFFER));
    }
}

// In the child.
int SendAll(int fd, uint64_t bytes, size_t writeBytes) {
    const std::vector<char> buffer(writeBytes, 'x');
    while (bytes > 0) {
        const size_t count = std::min<uint64_t>(bytes, writeBytes);
        const ssize_t sent = send(fd, buffer.data(), count, MSG_NOSIGNAL);
        if (sent <= 0) {
            return 1;
        }
        bytes -= static_cast<uint64_t>(sent);
    }
    return 0;
}

void ReceiveAll(int fd, uint64_t bytes, size_t readBytes, ResultRing* ring) {
    std::vector<char> buffer(readBytes);
    while (bytes > 0) {
        const ssize_t count = recv(fd, buffer.data(), buffer.size(), 0);
        Require(count > 0, "receive failed");
        if (ring != nullptr) {
            Require(ring->Write({buffer.data(), static_cast<size_t>(count)}), "write failed");
        }
        bytes -= static_cast<uint64_t>(count);
    }
}

double CpuOfEnded(pid_t child) {
    int status = 0;
    rusage usage{};
    Require(wait4(child, &status, 0, &usage) == child && status == 0, "the sender failed");
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace

RawResult RunRawStream(uint64_t bytes, size_t writeBytes, ResultRing* ring) {
    int ends[2] = {-1, -1};
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "no socket pair");
    for (const int fd : ends) {
        SetBuffer(fd, SO_SNDBUFFORCE, SO_SNDBUF);
        SetBuffer(fd, SO_RCVBUFFORCE, SO_RCVBUF);
    }
    const pid_t child = fork();
    Require(child >= 0, "no child");
    if (child == 0) {
        close(ends[0]);
        _exit(SendAll(ends[1], bytes, writeBytes));
    }
    close(ends[1]);
    const double cpuBefore = OwnCpu();
    const Clock::time_point start = Clock::now();
    ReceiveAll(ends[0], bytes, writeBytes, ring);
    const double seconds = SecondsSince(start);
    const double receiverCpu = OwnCpu() - cpuBefore;
    close(ends[0]);
    const double gigabytes = static_cast<double>(bytes) / GB;
    return {static_cast<double>(bytes) / seconds, CpuOfEnded(child) / gigabytes,
            receiverCpu / gigabytes};
}

size_t FastestWriteSize(uint64_t bytes, ResultRing* ring) {
    size_t fastest = LEAST_WRITE;
    double best = 0;
    (void)RunRawStream(bytes, LEAST_WRITE, ring);  // warms the sockets' memory
    for (size_t size = LEAST_WRITE; size <= MOST_WRITE; size *= 2) {
        const double rate = RunRawStream(bytes, size, ring).bytesPerSecond;
        std::printf("raw stream, writes of %4zu KiB: %6.2f GB/s\n", size >> 10, rate / GB);
        if (rate > best) {
            best = rate;
            fastest = size;
        }
    }
    return fastest;
}

}  // namespace tiv::bench
