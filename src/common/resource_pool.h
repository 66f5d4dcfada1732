// The pool templates of the chunk pool.
#pragma once

#include <cstdint>
#include <memory>
#include <queue>
#include <vector>

#include "common/chunk.h"
#include "platform/mutex.h"

namespace analysis::rokt::common::memory {

// The objects of a pool, and the parameter with which each of them is made.
template <class T, class P>
class PoolBase {
 public:
    PoolBase(uint64_t size, P parameter) : poolSize(size), param(parameter) {}
    virtual ~PoolBase() = default;
    PoolBase(const PoolBase&) = delete;
    PoolBase& operator=(const PoolBase&) = delete;

 protected:
    const uint64_t poolSize;
    const P param;  // for chunks their size in bytes
    std::vector<std::shared_ptr<T>> resources;
};

// A pool whose free objects wait in a queue.
template <class T, class P>
class ResourcePool : public PoolBase<T, P> {
 public:
    ResourcePool(uint64_t size, P parameter) : PoolBase<T, P>(size, parameter) {}
    ~ResourcePool() override {
        tiv::MutexLock lock(mutex);
        freeResources = {};
        this->resources.clear();
    }

 protected:
    std::queue<std::shared_ptr<T>> freeResources;
    tiv::CondVar notEmpty;
    tiv::Mutex mutex;  // guards both containers
};

// A pool of `poolSize` chunks of `chunkSize` bytes each.
class ChunkPool : public ResourcePool<Chunk, unsigned long> {
 public:
    ChunkPool(uint64_t size, unsigned long chunkSize) : ResourcePool(size, chunkSize) {}
};

}  // namespace analysis::rokt::common::memory
