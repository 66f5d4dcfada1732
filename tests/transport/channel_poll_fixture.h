// What the tests of the poll thread share: a poller, and a gate for its workers.
#pragma once

#include <gtest/gtest.h>

#include "support/failing_new.h"
#include "transport/channel_fixture.h"
#include "transport/channel_poll.h"

namespace tiv::test {

// Lets threads through once it is open.
class Gate {
 public:
    void Pass() {
        MutexLock lock(mutex_);
        while (!open_) {
            changed_.Wait(mutex_);
        }
    }
    void Open() {
        MutexLock lock(mutex_);
        open_ = true;
        changed_.NotifyAll();
    }

 private:
    Mutex mutex_;
    CondVar changed_;
    bool open_ GUARDED_BY(mutex_) = false;
};

class ChannelPollTest : public ChannelFixture {
 protected:
    void StartPoll() { EXPECT_EQ(poll.Start(), 0); }

    // Dispatches the reader once with no memory to be had; 1 when it would have taken some.
    size_t FailedDispatches() {
        const FailingNew failing;
        poll.DispatchChannel(DEVICE, CHANNEL);
        return failing.Failed();
    }

    analysis::rokt::transport::ChannelPoll poll;
};

}  // namespace tiv::test
