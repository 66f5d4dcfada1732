// Request reading and routing on the session threads.
#include "daemon/hdc_session_thread.h"

#include <chrono>
#include <exception>

#include "common/memory_utils.h"
#include "daemon/global_ctrl_info.h"
#include "daemon/ide_common_util.h"
#include "hdc/hdc_api.h"
#include "platform/bounds_checked.h"
#include "platform/log.h"
#include "platform/mutex.h"

namespace {

constexpr auto SESSION_WAIT_LIMIT = std::chrono::seconds(15);
constexpr size_t THREAD_NAME_ROOM = 64;

// Counts the running session threads. They are detached, so that this is all that the end of the
// process can wait for. Never destroyed: a thread may outlive the wait.
class SessionThreadCounter {
 public:
    void Add() {
        tiv::MutexLock lock(mutex_);
        ++running_;
    }

    void Remove() {
        tiv::MutexLock lock(mutex_);
        --running_;
        ended_.NotifyAll();
    }

    void WaitForNone() {
        const auto deadline = std::chrono::steady_clock::now() + SESSION_WAIT_LIMIT;
        tiv::MutexLock lock(mutex_);
        while (running_ != 0) {
            if (!ended_.WaitUntil(mutex_, deadline)) {
                return;
            }
        }
    }

    uint32_t Running() {
        tiv::MutexLock lock(mutex_);
        return running_;
    }

 private:
    tiv::Mutex mutex_;
    tiv::CondVar ended_;
    uint32_t running_ GUARDED_BY(mutex_) = 0;
};

SessionThreadCounter& GetSessionThreadCounter() {
    static SessionThreadCounter* counter = new SessionThreadCounter();
    return *counter;
}

// The allocator's block behind a request; goes with the routing, by whichever way that ends.
class RequestHolder {
 public:
    explicit RequestHolder(IdeTlvReq* request) : request_(request) {}
    ~RequestHolder() { KbxIdeFreePacket(request_); }
    RequestHolder(const RequestHolder&) = delete;
    RequestHolder& operator=(const RequestHolder&) = delete;

 private:
    IdeTlvReq* request_;
};

// "<name of the session threads>_<name of the request's type>". Takes no memory: a session whose
// thread failed between reading and handing on would stay open for ever.
void NameThreadAfter(uint32_t requestType) {
    char name[THREAD_NAME_ROOM] = {0};
    (void)sprintf_s(name, sizeof(name), "%s_%s", IDE_HDC_PROCESS_THREAD_NAME,
                    IdeRequestName(requestType));
    (void)mmSetCurrentThreadName(name);
}

// The request's type may name no component; it gets the thread name and the handler of its own.
int32_t CallComponent(uint32_t component, HDC_SESSION session, const IdeTlvReq* request) {
    const auto process = IdeComponentHdcProcess(component);
    if (process == nullptr) {
        TIV_LOGE("req->type: %d, Invalid request or no hdc process func register",
                 static_cast<int>(request->type));
        return -1;
    }
    NameThreadAfter(request->type);
    return process(session, request);
}

// An exception that left the thread's body would end the daemon.
void ServeSession(const SessionEvent& event) {
    try {
        const int32_t err = IdeDaemonHdcProcessEvent(event);
        if (err != 0) {
            TIV_LOGE("Daemon Hdc Process Event Process Failed, err: %d", err);
        }
    } catch (const std::exception& ex) {
        TIV_LOGE("Session thread ended by an exception, message: %s", ex.what());
    }
}

}  // namespace

int32_t IdeStartSessionThread(uint32_t phyDevId, uint32_t logDevId, HDC_SESSION session) {
    SessionEvent* event = static_cast<SessionEvent*>(IdeXmalloc(sizeof(SessionEvent)));
    if (event == nullptr) {
        TIV_LOGE("Ide Xmalloc failed");
        return -1;
    }
    *event = {phyDevId, logDevId, session};
    const mmUserBlock block = {IdeDaemonHdcSessionThread, event};
    const mmThreadAttr attr = IdeDetachedThreadAttr();
    mmThread thread{};
    GetSessionThreadCounter().Add();
    const int32_t err = mmCreateTaskWithThreadAttr(&thread, &block, &attr);
    if (err != 0) {
        GetSessionThreadCounter().Remove();
        TIV_LOGE("Thread Create Error: %d", err);
        IdeXfree(event);
        return -1;
    }
    return 0;
}

void* IdeDaemonHdcSessionThread(void* arg) {
    if (arg == nullptr) {
        TIV_LOGE("invalid parameter");
        return nullptr;
    }
    (void)mmSetCurrentThreadName(IDE_HDC_PROCESS_THREAD_NAME);
    SessionEvent* event = static_cast<SessionEvent*>(arg);
    ServeSession(*event);
    IdeXfree(event);
    GetSessionThreadCounter().Remove();
    return nullptr;
}

int32_t IdeDaemonHdcProcessEvent(const SessionEvent& event) {
    const IdeSessionRef ref = {IDE_SESSION_HDC, event.session};
    IdeTlvReq* request = nullptr;
    const int32_t err = IdeHdcReadRequest(ref, &request);
    if (err != 0) {
        TIV_LOGE("Ide Hdc Read Request failed, err: %d", err);
        (void)HdcSessionClose(event.session);
        return -1;
    }
    TIV_LOGI("received %s request, type %d, req->dev_id=%d, phyDevId=%u.",
             IdeRequestName(request->type), static_cast<int>(request->type),
             static_cast<int>(request->dev_id), event.phyDevId);
    request->dev_id = event.phyDevId;
    return IdeDaemonHdcRoute(event.session, request);
}

int32_t IdeDaemonHdcRoute(HDC_SESSION session, IdeTlvReq* request) {
    const RequestHolder holder(request);
    const uint32_t component = IdeComponentByRequest(request);
    const int32_t status = CallComponent(component, session, request);
    if (status != 0) {
        TIV_LOGE("req->type: %d, call %s process func failed, err: %d",
                 static_cast<int>(request->type), IdeRequestName(request->type), status);
    }
    if (component != IDE_COMPONENT_PROFILING) {
        (void)HdcSessionClose(session);
    }
    return status;
}

void IdeWaitForSessionThreads() { GetSessionThreadCounter().WaitForNone(); }

uint32_t IdeSessionThreadCount() { return GetSessionThreadCounter().Running(); }
