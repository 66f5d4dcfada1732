// The table that turns opaque handles into the objects behind them.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>

#include "platform/mutex.h"

namespace tiv::soft_driver {

// One sequence for all kinds of handles: a number given to the wrong function finds nothing.
inline uintptr_t NextHandleNumber() {
    static std::atomic<uintptr_t> last{0};
    return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

// Objects of one kind by handle. A handle is a rising number, never an address and never used
// again, so a stale one is found missing instead of meaning somebody else's object.
//
// Find hands out a share of the object: whoever is inside a call keeps it alive, and the last one
// to leave after Take frees it. Any thread.
template <class T>
class HandleTable {
 public:
    HandleTable() = default;
    HandleTable(const HandleTable&) = delete;
    HandleTable& operator=(const HandleTable&) = delete;

    [[nodiscard]] void* Add(std::shared_ptr<T> object) EXCLUDES(mutex_) {
        const uintptr_t number = NextHandleNumber();
        MutexLock lock(mutex_);
        rows_.emplace(number, std::move(object));
        return reinterpret_cast<void*>(number);  // NOLINT(performance-no-int-to-ptr): a number
    }

    // Null for a handle that was never given out or is gone.
    [[nodiscard]] std::shared_ptr<T> Find(const void* handle) const EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        const auto row = rows_.find(reinterpret_cast<uintptr_t>(handle));
        return row == rows_.end() ? nullptr : row->second;
    }

    // Finds and forgets. Of two callers with one handle only the first gets the object.
    [[nodiscard]] std::shared_ptr<T> Take(const void* handle) EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        const auto row = rows_.find(reinterpret_cast<uintptr_t>(handle));
        if (row == rows_.end()) {
            return nullptr;
        }
        std::shared_ptr<T> object = std::move(row->second);
        rows_.erase(row);
        return object;
    }

 private:
    mutable Mutex mutex_;
    std::unordered_map<uintptr_t, std::shared_ptr<T>> rows_ GUARDED_BY(mutex_);
};

}  // namespace tiv::soft_driver
