// The working buffer of the collectors.
#pragma once

#include <cstdint>

namespace analysis::rokt::common::memory {

// A block of fixed size with a fill mark.
//
// Constructed with a size, Init makes the memory, Uninit gives it back for good: the size becomes
// 0. Belongs to one thread at a time.
class Chunk {
 public:
    explicit Chunk(uint64_t size);
    virtual ~Chunk();
    Chunk(const Chunk&) = delete;
    Chunk& operator=(const Chunk&) = delete;

    // Allocates the zeroed buffer; size 0 succeeds without one. False when memory is short.
    [[nodiscard]] bool Init();
    void Uninit();
    // Zeroes the buffer and the fill mark.
    void Clear();

    void* GetBuffer() const { return buffer; }
    uint64_t GetUsedSize() const { return usedSize; }
    void SetUsedSize(uint64_t size) { usedSize = size; }
    uint64_t GetFreeSize() const { return bufferSize - usedSize; }
    uint64_t GetBufferSize() const { return bufferSize; }

 private:
    void* buffer = nullptr;
    uint64_t bufferSize;    // bytes
    uint64_t usedSize = 0;  // bytes
};

}  // namespace analysis::rokt::common::memory
