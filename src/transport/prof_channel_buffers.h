// The buffers that travel from channel readers to the link and back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hdc/file_chunk.h"
#include "platform/mutex.h"

namespace analysis::rokt::transport {

// Default and largest buffer of a channel reader, in bytes.
constexpr uint32_t CHANNEL_BUFFER_SIZE = 4194304;

// Hands out chunks whose payload has room for one full buffer, and gets the room back when the
// chunk dies: fresh pages for every 4 MiB cost more than copying them.
//
// The payload of a chunk that comes out of here may hold bytes of an earlier one; the reader writes
// over them and `chunkSize` tells how far. Room is kept only while readers are attached, four
// buffers for each, at most 32. The pool outlives every chunk: it is never destroyed. Any thread.
class ProfChannelBuffers {
 public:
    static ProfChannelBuffers& Instance();

    ProfChannelBuffers();
    ProfChannelBuffers(const ProfChannelBuffers&) = delete;
    ProfChannelBuffers& operator=(const ProfChannelBuffers&) = delete;

    void Attach() EXCLUDES(mutex_);
    // The last reader's leave frees what is kept.
    void Detach() EXCLUDES(mutex_);

    // A chunk with default fields. Throws std::bad_alloc.
    [[nodiscard]] std::shared_ptr<ProfileFileChunk> MakeChunk() EXCLUDES(mutex_);

    // Buffers at rest here.
    [[nodiscard]] size_t IdleCount() EXCLUDES(mutex_);

 private:
    // Gives the payload's room back when its last holder lets go.
    struct PooledChunk {
        PooledChunk() = default;
        ~PooledChunk() { Instance().Give(chunk.chunk); }
        PooledChunk(const PooledChunk&) = delete;
        PooledChunk& operator=(const PooledChunk&) = delete;

        ProfileFileChunk chunk;
    };

    std::string Take() EXCLUDES(mutex_);
    // Leaves `buffer` alone when there is enough at rest.
    void Give(std::string& buffer) noexcept EXCLUDES(mutex_);
    size_t Limit() const REQUIRES(mutex_);

    tiv::Mutex mutex_;
    size_t readers_ GUARDED_BY(mutex_) = 0;
    std::vector<std::string> idle_ GUARDED_BY(mutex_);
};

}  // namespace analysis::rokt::transport
