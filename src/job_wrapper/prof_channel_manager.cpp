// The owner of the process's one channel poller.
#include "job_wrapper/prof_channel_manager.h"

#include <exception>

#include "platform/log.h"
#include "transport/channel_poll.h"

namespace Analysis::Rokt::JobWrapper {

using analysis::rokt::transport::ChannelPoll;

int ProfChannelManager::Init() {
    tiv::MutexLock lock(mutex);
    ++index;
    TIV_LOGI("ProfChannelManager Init index:%lu", static_cast<unsigned long>(index));
    if (poll != nullptr) {
        TIV_LOGI("ProfChannelManager already inited");
        return 0;
    }
    try {
        poll = std::make_shared<ChannelPoll>();
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
        return -1;
    }
    const int ret = poll->Start();
    if (ret != 0) {
        TIV_LOGI("drvChannelPoll start thread pool failed");
        poll.reset();  // the next Init makes another
        return ret;
    }
    TIV_LOGI("Init Poll Succ");
    return 0;
}

void ProfChannelManager::UnInit(bool force) {
    tiv::MutexLock lock(mutex);
    TIV_LOGI("ProfChannelManager UnInit index:%lu", static_cast<unsigned long>(index));
    if (force) {
        index = 0;
    } else if (index != 0) {
        --index;
    }
    if (index != 0 || poll == nullptr) {
        return;
    }
    if (poll->Stop() != 0) {
        TIV_LOGE("drvChannelPoll_ stop failed");
    }
    poll.reset();
    TIV_LOGI("UnInit Poll Succ");
}

std::shared_ptr<ChannelPoll> ProfChannelManager::GetChannelPoller() {
    tiv::MutexLock lock(mutex);
    return poll;
}

void ProfChannelManager::FlushChannel() {
    const std::shared_ptr<ChannelPoll> poller = GetChannelPoller();
    if (poller != nullptr) {
        poller->FlushDrvBuff();
    }
}

}  // namespace Analysis::Rokt::JobWrapper
