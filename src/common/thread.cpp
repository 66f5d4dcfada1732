// The abstract thread of the profiling side.
#include "common/thread.h"

#include <exception>

#include "platform/bounds_checked.h"
#include "platform/log.h"

namespace analysis::rokt::common::thread {

using Analysis::Rokt::ZelnarErrMgr::ZelnarErrorManager;

namespace {

// Bytes. The stack flag stays 0, so that it counts only where the platform ignores the flag.
constexpr uint32_t THREAD_STACK_SIZE = 131072;

}  // namespace

Thread::~Thread() {
    if (Thread::Stop() != 0) {
        TIV_LOGW("Failed to stop thread.");
    }
}

int Thread::Start() {
    if (started.load()) {
        return 0;
    }
    mmUserBlock block;
    mmThreadAttr attr;
    (void)memset_s(&block, sizeof(block), 0, sizeof(block));
    (void)memset_s(&attr, sizeof(attr), 0, sizeof(attr));
    block.procFunc = ThreadEntry;
    block.pulArg = this;
    attr.stackSize = THREAD_STACK_SIZE;
    quit.store(false);
    context = ZelnarErrorManager::Instance().GetErrorContext();
    if (mmCreateTaskWithThreadAttr(&tid, &block, &attr) != 0) {
        tid = 0;
        return -1;
    }
    started.store(true);
    return 0;
}

int Thread::Stop() {
    quit.store(true);
    if (!started.load()) {
        return 0;
    }
    started.store(false);
    if (tid == 0) {
        return 0;
    }
    if (mmJoinTask(&tid) != 0) {
        return -1;
    }
    tid = 0;
    return 0;
}

Thread* Thread::SetQuit() {
    quit.store(true);
    return this;
}

// An exception that left a thread's function would end the process and every other job with it.
void* Thread::ThreadEntry(void* object) {
    if (object == nullptr) {
        return nullptr;
    }
    auto* const self = static_cast<Thread*>(object);
    (void)mmSetCurrentThreadName(self->threadName.c_str());
    TIV_LOGI("New thread %s begins to run", self->threadName.c_str());
    try {
        self->Run(self->context);
    } catch (const std::exception& error) {
        TIV_LOGE("Thread %s ended by an exception: %s", self->threadName.c_str(), error.what());
    }
    return nullptr;
}

}  // namespace analysis::rokt::common::thread
