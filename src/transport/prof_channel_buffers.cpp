// The buffers that travel from channel readers to the link and back.
#include "transport/prof_channel_buffers.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace analysis::rokt::transport {
namespace {

constexpr size_t BUFFERS_PER_READER = 4;
constexpr size_t BUFFERS_MAX = 32;

// Room for one buffer in as large pages as the machine has. Readers that run ahead of the link fill
// fresh memory; with 64 channels at full speed this gives a seventh more throughput.
std::string FreshBuffer() {
    std::string buffer;
    buffer.reserve(CHANNEL_BUFFER_SIZE);
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t behindPage = reinterpret_cast<uintptr_t>(buffer.data()) % page;
    // Advice only: where it is refused, ordinary pages do.
    (void)madvise(buffer.data() + (page - behindPage) % page, CHANNEL_BUFFER_SIZE - page,
                  MADV_HUGEPAGE);
    return buffer;
}

}  // namespace

ProfChannelBuffers& ProfChannelBuffers::Instance() {
    // Never destroyed: a chunk may die in any static destructor.
    static ProfChannelBuffers* const buffers = std::make_unique<ProfChannelBuffers>().release();
    return *buffers;
}

ProfChannelBuffers::ProfChannelBuffers() {
    // Giving a buffer back must not allocate: it happens in a destructor.
    tiv::MutexLock lock(mutex_);
    idle_.reserve(BUFFERS_MAX);
}

void ProfChannelBuffers::Attach() {
    tiv::MutexLock lock(mutex_);
    ++readers_;
}

void ProfChannelBuffers::Detach() {
    tiv::MutexLock lock(mutex_);
    --readers_;
    while (idle_.size() > Limit()) {
        idle_.pop_back();
    }
}

std::shared_ptr<ProfileFileChunk> ProfChannelBuffers::MakeChunk() {
    const auto pooled = std::make_shared<PooledChunk>();
    pooled->chunk.chunk = Take();
    return std::shared_ptr<ProfileFileChunk>(pooled, &pooled->chunk);
}

size_t ProfChannelBuffers::IdleCount() {
    tiv::MutexLock lock(mutex_);
    return idle_.size();
}

std::string ProfChannelBuffers::Take() {
    {
        tiv::MutexLock lock(mutex_);
        if (!idle_.empty()) {
            std::string buffer = std::move(idle_.back());
            idle_.pop_back();
            return buffer;
        }
    }
    return FreshBuffer();
}

void ProfChannelBuffers::Give(std::string& buffer) noexcept {
    if (buffer.capacity() < CHANNEL_BUFFER_SIZE) {
        return;
    }
    tiv::MutexLock lock(mutex_);
    if (idle_.size() < Limit()) {
        idle_.push_back(std::move(buffer));
    }
}

size_t ProfChannelBuffers::Limit() const {
    return std::min(readers_ * BUFFERS_PER_READER, BUFFERS_MAX);
}

}  // namespace analysis::rokt::transport
