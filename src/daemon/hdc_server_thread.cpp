// The accept loop of one device.
#include "daemon/hdc_server_thread.h"

#include <cerrno>
#include <exception>
#include <utility>

#include "daemon/global_ctrl_info.h"
#include "daemon/hdc_session_thread.h"
#include "daemon/kbx_dsmi.h"
#include "hdc/hdc_api.h"
#include "platform/log.h"

namespace {

constexpr uint32_t SERVER_RETRY_MS = 5000;
constexpr int32_t ERROR_INTERRUPTED = 4;

bool Accepting(const GlobalCtrlInfo& info) { return info.sessionAcceptRun != 0 && !info.stopping; }

// Gives the handle up and destroys it, unless the teardown has taken it already.
void DestroyServer(DeviceInfo& device) {
    const HDC_SERVER server = device.server.exchange(nullptr);
    if (server == nullptr) {
        return;
    }
    const int32_t err = drvHdcServerDestroy(server);
    if (err != 0) {
        TIV_LOGE("Hdc Server Destroy Error : %d", err);
    }
}

// One attempt to make the server; a failure is logged with the reason.
bool TryCreateServer(DeviceInfo& device) {
    uint32_t logDevId = device.logDevId;
    const int32_t retry = static_cast<int32_t>(SERVER_RETRY_MS);
    if (IdeGetLogIdByPhyId(device.phyDevId, &logDevId) != 0) {
        TIV_LOGW("logDevId %u phyDevId %u not ready, sleep %d milliseconds and retry", logDevId,
                 device.phyDevId, retry);
        return false;
    }
    device.logDevId = logDevId;
    HDC_SERVER server = nullptr;
    const int32_t err = drvHdcServerCreate(static_cast<int32_t>(logDevId),
                                           static_cast<int32_t>(device.serviceType), &server);
    if (err == HDC_ERR_NOT_READY) {
        TIV_LOGW("logDevId %u phyDevId %u hdc not ready, sleep %d milliseconds and retry", logDevId,
                 device.phyDevId, retry);
        return false;
    }
    if (err != 0 || server == nullptr) {
        TIV_LOGW(
            "logDevId %u phyDevId %u create HDC failed, error: %d, sleep %d milliseconds and retry",
            logDevId, device.phyDevId, err, retry);
        return false;
    }
    device.server = server;
    TIV_LOGI("logDevId %u phyDevId:%u create HDC server successfully", logDevId, device.phyDevId);
    return true;
}

// Tries until there is a server or accepting has ended.
void CreateServer(const GlobalCtrlInfo& info, DeviceInfo& device) {
    while (Accepting(info)) {
        if (TryCreateServer(device)) {
            break;
        }
        (void)mmSleep(SERVER_RETRY_MS);
    }
    if (info.stopping) {
        // The teardown may have passed by before the handle stood in the record.
        DestroyServer(device);
    }
}

void EraseRecord(GlobalCtrlInfo& info, uint32_t phyDevId) {
    if (mmMutexLock(&info.mutex) != 0) {
        TIV_LOGE("mutex lock error");
        return;
    }
    (void)info.devices.erase(phyDevId);
    if (mmMutexUnLock(&info.mutex) != 0) {
        TIV_LOGE("mutex lock error");
    }
}

// Looks at a failed accept. False when the accept loop is over.
bool RecoverFromFailedAccept(GlobalCtrlInfo& info, DeviceInfo& device) {
    const int32_t code = mmGetErrorCode();
    if (!Accepting(info)) {
        return false;
    }
    if (code == ERROR_INTERRUPTED) {
        TIV_LOGW("Hdc Session Accept Break By EINTR");
        return true;
    }
    TIV_LOGE("Hdc Session Accept Error: %d", code);
    DestroyServer(device);
    if (device.removed != 0) {
        EraseRecord(info, device.phyDevId);
        return false;
    }
    CreateServer(info, device);
    return true;
}

void AcceptSessions(GlobalCtrlInfo& info, DeviceInfo& device) {
    while (info.sessionAcceptRun != 0) {
        HDC_SESSION session = nullptr;
        errno = 0;  // a failure that leaves no reason must not look like an old interruption
        const int32_t err = drvHdcSessionAccept(device.server, &session);
        if (err == 0 && session != nullptr) {
            (void)drvHdcSetSessionReference(session);
            if (IdeStartSessionThread(device.phyDevId, device.logDevId, session) != 0) {
                (void)HdcSessionClose(session);
                return;
            }
        } else if (!RecoverFromFailedAccept(info, device)) {
            return;
        }
    }
}

// An exception costs the device a pause and not its accept loop.
void ServeDevice(GlobalCtrlInfo& info, DeviceInfo& device) {
    while (true) {
        try {
            if (device.server == nullptr) {
                CreateServer(info, device);
            }
            AcceptSessions(info, device);
            return;
        } catch (const std::exception& error) {
            TIV_LOGE("Accepting was interrupted, phyDevId=%u, message: %s", device.phyDevId,
                     error.what());
        }
        (void)mmSleep(SERVER_RETRY_MS);
    }
}

}  // namespace

void* IdeDaemonHdcHandleEvent(void* arg) {
    TIV_EVENT("<START thread> IdeDaemonHdcHandleEvent start");
    if (arg == nullptr) {
        TIV_LOGE("invalid parameter");
        return nullptr;
    }
    const std::shared_ptr<DeviceInfo> device =
        std::move(static_cast<DeviceInfo*>(arg)->threadShare);
    (void)mmSetCurrentThreadName(IDE_HDC_SERVER_THREAD_NAME);
    ServeDevice(GetGlobalCtrlInfo(), *device);
    TIV_EVENT("<EXIT thread> IdeDaemonHdcHandleEvent");
    return nullptr;
}
