// What a running collection shows to the person who waits for it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "host/chunk_sink.h"

namespace tiv::host {

struct Progress {
    std::string phase;  // "collecting", "draining"
    std::chrono::milliseconds elapsed{0};
    std::chrono::milliseconds total{0};  // 0: no end is known
    uint64_t bytes = 0;
    uint64_t files = 0;
};

// Show and Clear come from the thread that runs the collection and never block for a terminal.
class CollectionView {
 public:
    CollectionView() = default;
    virtual ~CollectionView() = default;
    CollectionView(const CollectionView&) = delete;
    CollectionView& operator=(const CollectionView&) = delete;

    virtual void Show(const Progress& progress) = 0;
    // Makes room on the terminal, so that a message can stand there.
    virtual void Clear() = 0;

    // A sink to stand in front of `files`, which it calls and does not outlive; null for none. It
    // is asked for once for each device.
    virtual std::unique_ptr<ChunkSink> Tap(int /*deviceId*/, ChunkSink& /*files*/) {
        return nullptr;
    }
};

}  // namespace tiv::host
