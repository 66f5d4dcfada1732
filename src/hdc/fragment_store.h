// Collects the payloads of one buffer's fragments in order.
#pragma once

#include <cstddef>
#include <cstdint>

// One growing allocation into which every payload is copied once; it is the buffer that the reader
// of the session gets in the end, cut to its size.
//
// The first fragment of a longer buffer reserves what the thread's last long buffer came to, since
// the buffers of one session are much alike; from there the room doubles. What is reserved and not
// filled is address space, not memory.
//
// Belongs to one read.
class FragmentStore {
 public:
    FragmentStore() = default;
    ~FragmentStore();
    FragmentStore(const FragmentStore&) = delete;
    FragmentStore& operator=(const FragmentStore&) = delete;

    // Starts the fragments of one driver message.
    void BeginPass() { passLength_ = 0; }

    // Appends the payload of the fragment that lies in `bytes` bytes. False when it is none, when
    // its own length exceeds the bytes there are, when the lengths together leave 32 bits, or when
    // memory is out.
    [[nodiscard]] bool Store(const char* fragment, size_t bytes);

    // Bytes stored since BeginPass.
    uint64_t PassLength() const { return passLength_; }

    // Hands out what was stored, for IdeXfree. -1 when that is nothing or an output is null; the
    // store keeps what it has then.
    [[nodiscard]] int32_t Merge(void** recvBuf, uint32_t* recvLen);

    // Forgets what was stored.
    void Clear();

 private:
    [[nodiscard]] bool HasRoomInLength(uint32_t len) const;
    [[nodiscard]] bool CanMerge(void* const* recvBuf, const uint32_t* recvLen) const;
    [[nodiscard]] bool Reserve(size_t bytes, bool isLast);
    [[nodiscard]] bool Grow(size_t capacity);
    void Trim();

    char* data_ = nullptr;
    size_t capacity_ = 0;
    size_t used_ = 0;
    bool isLong_ = false;  // began with a fragment that is not the last
    uint64_t passLength_ = 0;
};
