// The working buffer of the collectors.
#include "common/chunk.h"

#include <cstdlib>

#include "platform/bounds_checked.h"

namespace analysis::rokt::common::memory {

Chunk::Chunk(uint64_t size) : bufferSize(size) {}

Chunk::~Chunk() { Uninit(); }

bool Chunk::Init() {
    if (bufferSize == 0) {
        return true;
    }
    std::free(buffer);
    buffer = std::malloc(bufferSize);
    if (buffer == nullptr) {
        return false;
    }
    Clear();
    return true;
}

void Chunk::Uninit() {
    std::free(buffer);
    buffer = nullptr;
    bufferSize = 0;
}

void Chunk::Clear() {
    if (buffer != nullptr) {
        (void)memset_s(buffer, bufferSize, 0, bufferSize);
    }
    usedSize = 0;
}

}  // namespace analysis::rokt::common::memory
