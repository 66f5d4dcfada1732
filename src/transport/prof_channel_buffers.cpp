// The buffers that travel from channel readers to the link and back.
#include "transport/prof_channel_buffers.h"

#include <algorithm>
#include <utility>

namespace analysis::rokt::transport {
namespace {

constexpr size_t BUFFERS_PER_READER = 4;
constexpr size_t BUFFERS_MAX = 32;

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
    std::string buffer;
    {
        tiv::MutexLock lock(mutex_);
        if (!idle_.empty()) {
            buffer = std::move(idle_.back());
            idle_.pop_back();
        }
    }
    buffer.reserve(CHANNEL_BUFFER_SIZE);
    return buffer;
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
