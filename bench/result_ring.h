// The file of bounded size that every receiver of a benchmark writes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tiv::bench {

// A memory-backed file of 256 MiB that is overwritten round and round. One thread.
class ResultRing {
 public:
    static constexpr uint64_t BYTES = 256ULL << 20;

    // Every page is there from the start. Throws std::runtime_error.
    ResultRing();
    ~ResultRing();
    ResultRing(const ResultRing&) = delete;
    ResultRing& operator=(const ResultRing&) = delete;

    // Writes behind the last bytes. False when the kernel refuses.
    [[nodiscard]] bool Write(std::string_view bytes);

 private:
    int fd_ = -1;
    uint64_t position_ = 0;
};

}  // namespace tiv::bench
