// The owner of the process's one channel poller.
#pragma once

#include <cstdint>
#include <memory>

#include "common/singleton.h"
#include "platform/mutex.h"

namespace analysis::rokt::transport {
class ChannelPoll;
}

namespace Analysis::Rokt::JobWrapper {

// Starts the poller for the first job and ends it with the last, by a use count.
//
// Any thread. UnInit joins the poll thread and the workers under the mutex.
class ProfChannelManager : public analysis::rokt::common::singleton::Singleton<ProfChannelManager> {
    friend class analysis::rokt::common::singleton::Singleton<ProfChannelManager>;

 public:
    // Counts one use and starts the poller for the first. A failed start leaves no poller behind
    // but the use is counted: the caller gives it back with UnInit(false).
    [[nodiscard]] int Init() EXCLUDES(mutex);
    // Gives one use back, or all with `force`; the last one stops the poller.
    void UnInit(bool force) EXCLUDES(mutex);
    // Null while no job runs.
    [[nodiscard]] std::shared_ptr<analysis::rokt::transport::ChannelPoll> GetChannelPoller()
        EXCLUDES(mutex);
    // Flushes the driver's buffers of all readers. Waits without a limit, outside the mutex.
    void FlushChannel() EXCLUDES(mutex);

 protected:
    ProfChannelManager() = default;

 private:
    std::shared_ptr<analysis::rokt::transport::ChannelPoll> poll GUARDED_BY(mutex);
    tiv::Mutex mutex;
    uint64_t index GUARDED_BY(mutex) = 0;
};

}  // namespace Analysis::Rokt::JobWrapper
