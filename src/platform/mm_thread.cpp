// Threads, mutexes and semaphores of the OS abstraction.
#include <errno.h>
#include <string.h>

#include "platform/mm_api.h"

namespace {

// The pthread functions return their error; callers of the abstraction look at errno.
int32_t Report(int error) {
    if (error == 0) {
        return 0;
    }
    errno = error;
    return -1;
}

int32_t Invalid() { return Report(EINVAL); }

// Attributes of one thread to be; freed with the object.
class Attributes {
 public:
    Attributes() : error_(pthread_attr_init(&attributes_)) {}
    ~Attributes() {
        if (error_ == 0) {
            pthread_attr_destroy(&attributes_);
        }
    }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    // 0, or the error of the first value that the system refuses.
    int Apply(const mmThreadAttr& wanted) {
        if (error_ != 0) {
            return error_;
        }
        int error = 0;
        if (wanted.detachFlag == 1) {
            error = pthread_attr_setdetachstate(&attributes_, PTHREAD_CREATE_DETACHED);
        }
        if (error == 0 && wanted.policyFlag == 1) {
            error = SetPolicy(wanted.policy);
        }
        if (error == 0 && wanted.priorityFlag == 1) {
            error = SetPriority(wanted.priority);
        }
        if (error == 0 && wanted.threadStackFlag == 1) {
            error = pthread_attr_setstacksize(&attributes_, wanted.stackSize);
        }
        return error;
    }

    const pthread_attr_t* Get() const { return &attributes_; }

 private:
    int SetPolicy(int policy) {
        const int error = pthread_attr_setinheritsched(&attributes_, PTHREAD_EXPLICIT_SCHED);
        return error == 0 ? pthread_attr_setschedpolicy(&attributes_, policy) : error;
    }
    int SetPriority(int priority) {
        sched_param param = {};
        param.sched_priority = priority;
        const int error = pthread_attr_setinheritsched(&attributes_, PTHREAD_EXPLICIT_SCHED);
        return error == 0 ? pthread_attr_setschedparam(&attributes_, &param) : error;
    }

    pthread_attr_t attributes_;
    int error_;
};

}  // namespace

int32_t mmCreateTaskWithThreadAttr(mmThread* handle, const struct mmUserBlock* block,
                                   const struct mmThreadAttr* attr) {
    if (handle == nullptr || block == nullptr || block->procFunc == nullptr || attr == nullptr) {
        return Invalid();
    }
    Attributes attributes;
    const int error = attributes.Apply(*attr);
    if (error != 0) {
        return Report(error);
    }
    return Report(pthread_create(handle, attributes.Get(), block->procFunc, block->pulArg));
}

int32_t mmJoinTask(mmThread* handle) {
    if (handle == nullptr) {
        return Invalid();
    }
    // A thread that joins itself would wait for ever; the system tells it only in most cases.
    if (pthread_equal(*handle, pthread_self()) != 0) {
        return Report(EDEADLK);
    }
    return Report(pthread_join(*handle, nullptr));
}

int32_t mmSetCurrentThreadName(const char* name) {
    constexpr size_t ROOM = 16;
    if (name == nullptr) {
        return Invalid();
    }
    char cut[ROOM] = {};
    strncpy(cut, name, ROOM - 1);
    return Report(pthread_setname_np(pthread_self(), cut));
}

int32_t mmMutexInit(mmMutex* mutex) {
    return mutex == nullptr ? Invalid() : Report(pthread_mutex_init(mutex, nullptr));
}

int32_t mmMutexLock(mmMutex* mutex) {
    return mutex == nullptr ? Invalid() : Report(pthread_mutex_lock(mutex));
}

int32_t mmMutexUnLock(mmMutex* mutex) {
    return mutex == nullptr ? Invalid() : Report(pthread_mutex_unlock(mutex));
}

int32_t mmMutexDestroy(mmMutex* mutex) {
    return mutex == nullptr ? Invalid() : Report(pthread_mutex_destroy(mutex));
}

int32_t mmSemInit(mmSem* sem, uint32_t value) {
    return sem == nullptr ? Invalid() : sem_init(sem, 0, value);
}

int32_t mmSemWait(mmSem* sem) { return sem == nullptr ? Invalid() : sem_wait(sem); }

int32_t mmSemPost(mmSem* sem) { return sem == nullptr ? Invalid() : sem_post(sem); }

int32_t mmSemDestroy(mmSem* sem) { return sem == nullptr ? Invalid() : sem_destroy(sem); }
