// What the tests of the channels share.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "driver_bench.h"

namespace tiv::test {

constexpr uint32_t HEADER_BYTES = 72;  // of a channel without event names

inline int32_t Start(uint32_t device, uint32_t channel, uint32_t periodMs = 0) {
    ProfStartPara para{};
    para.channelType = 1;
    para.samplePeriod = periodMs;
    para.realTime = 1;
    return prof_drv_start(device, channel, &para);
}

// Stops what a test left running, so that no source outlives it.
class ChannelBench : public DriverBench {
 protected:
    ~ChannelBench() override {
        for (uint32_t device = 0; device < 3; ++device) {
            (void)prof_stop(device, 8);
        }
    }
};

// Standard error as a pipe: a line can be waited for.
class StderrPipe {
 public:
    StderrPipe() : before_(dup(STDERR_FILENO)) {
        EXPECT_EQ(0, pipe(ends_));
        dup2(ends_[1], STDERR_FILENO);
    }
    ~StderrPipe() {
        dup2(before_, STDERR_FILENO);
        close(before_);
        close(ends_[0]);
        close(ends_[1]);
    }
    std::string NextLine() const {
        std::string line;
        char byte = 0;
        while (byte != '\n' && read(ends_[0], &byte, 1) == 1) {
            line += byte;
        }
        return line;
    }

 private:
    const int before_;
    int ends_[2] = {-1, -1};
};

// Reads until `bytes` have come, waiting in the poll; fewer when nothing comes for five seconds.
inline std::string ReadBytes(uint32_t device, uint32_t channel, size_t bytes,
                             uint32_t atMost = 65536) {
    std::string all;
    std::string buffer(atMost, '\0');
    while (all.size() < bytes) {
        const auto room = static_cast<uint32_t>(std::min<size_t>(atMost, bytes - all.size()));
        const int32_t count = prof_channel_read(device, channel, buffer.data(), room);
        if (count < 0) {
            return all;
        }
        all.append(buffer, 0, static_cast<size_t>(count));
        ProfPollPair pair{};
        if (count == 0 && prof_channel_poll(&pair, 1, 30) <= 0) {
            return all;
        }
    }
    return all;
}

inline uint32_t Word(const std::string& bytes, size_t offset) {
    uint32_t word = 0;
    memcpy(&word, bytes.data() + offset, sizeof(word));
    return word;
}

inline uint64_t Quad(const std::string& bytes, size_t offset) {
    uint64_t quad = 0;
    memcpy(&quad, bytes.data() + offset, sizeof(quad));
    return quad;
}

// The numbers 0 to count - 1 as a counter delivers them.
inline std::string Numbers(uint64_t count) {
    std::string bytes(count * 8, '\0');
    for (uint64_t i = 0; i < count; ++i) {
        memcpy(bytes.data() + i * 8, &i, 8);
    }
    return bytes;
}

}  // namespace tiv::test
