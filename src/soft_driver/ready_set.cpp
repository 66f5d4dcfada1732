// Which open channels hold data, and how much.
#include "soft_driver/ready_set.h"

#include <algorithm>
#include <utility>

namespace tiv::soft_driver {

ReadySet::EntryPtr ReadySet::Open(ProfPollPair id, uint64_t holdBack) {
    auto entry = std::make_shared<Entry>();
    entry->id = id;
    entry->holdBack = holdBack;
    MutexLock lock(mutex_);
    ++openCount_;
    return entry;
}

void ReadySet::Close(const EntryPtr& entry) {
    MutexLock lock(mutex_);
    entry->isOpen = false;
    if (std::exchange(entry->isQueued, false)) {
        queue_.erase(std::find(queue_.begin(), queue_.end(), entry));
    }
    --openCount_;
    entry->room.NotifyAll();
    entry->closed.NotifyAll();
    if (openCount_ == 0) {
        ready_.NotifyAll();
    }
}

void ReadySet::Enqueue(const EntryPtr& entry) {
    if (!entry->isQueued && entry->isOpen) {
        entry->isQueued = true;
        queue_.push_back(entry);
        ready_.NotifyOne();
    }
}

void ReadySet::MakeReadable(const EntryPtr& entry, uint64_t bytes) {
    const bool wasEmpty = entry->readable == 0;
    entry->readable += bytes;
    if (wasEmpty && bytes > 0) {
        Enqueue(entry);
    }
}

void ReadySet::Add(const EntryPtr& entry, uint64_t bytes) {
    MutexLock lock(mutex_);
    entry->held += bytes;
    if (entry->held >= entry->holdBack) {
        MakeReadable(entry, std::exchange(entry->held, 0));
    }
}

uint64_t ReadySet::Used(const EntryPtr& entry) {
    MutexLock lock(mutex_);
    return entry->readable + entry->held;
}

bool ReadySet::WaitForRoom(const EntryPtr& entry, uint64_t capacity, uint64_t* used) {
    MutexLock lock(mutex_);
    while (entry->isOpen && entry->readable + entry->held >= capacity) {
        entry->room.Wait(mutex_);
    }
    *used = entry->readable + entry->held;
    return entry->isOpen;
}

bool ReadySet::SleepUntil(const EntryPtr& entry, Clock::time_point deadline) {
    MutexLock lock(mutex_);
    while (entry->isOpen && Clock::now() < deadline) {
        (void)entry->closed.WaitUntil(mutex_, deadline);
    }
    return entry->isOpen;
}

bool ReadySet::Readable(const EntryPtr& entry, uint64_t* bytes) {
    MutexLock lock(mutex_);
    *bytes = entry->readable;
    return entry->isOpen;
}

void ReadySet::Take(const EntryPtr& entry, uint64_t bytes) {
    MutexLock lock(mutex_);
    entry->readable -= bytes;
    if (entry->readable > 0) {
        Enqueue(entry);
    }
    if (bytes > 0) {
        entry->room.NotifyAll();
    }
}

bool ReadySet::Flush(const EntryPtr& entry, uint64_t* bytes) {
    MutexLock lock(mutex_);
    *bytes = std::exchange(entry->held, 0);
    MakeReadable(entry, *bytes);
    return entry->isOpen;
}

int32_t ReadySet::Poll(ProfPollPair* out, int32_t count, std::chrono::seconds timeout) {
    const Clock::time_point deadline = Clock::now() + timeout;
    MutexLock lock(mutex_);
    for (;;) {
        if (openCount_ == 0) {
            return PROF_STOPPED_ALREADY;
        }
        const int32_t found = Collect(out, count);
        if (found > 0 || Clock::now() >= deadline) {
            return found;
        }
        (void)ready_.WaitUntil(mutex_, deadline);
    }
}

// Channels that were emptied since they were queued are left out.
int32_t ReadySet::Collect(ProfPollPair* out, int32_t count) {
    int32_t found = 0;
    while (found < count && !queue_.empty()) {
        const EntryPtr entry = std::move(queue_.front());
        queue_.pop_front();
        entry->isQueued = false;
        if (entry->readable > 0) {
            out[found++] = entry->id;
        }
    }
    return found;
}

}  // namespace tiv::soft_driver
