// Start, main loop and teardown of the HDC component.
#include "daemon/ide_daemon_hdc.h"

#include <exception>
#include <utility>

#include "daemon/global_ctrl_info.h"
#include "daemon/hdc_server_thread.h"
#include "daemon/hdc_session_thread.h"
#include "daemon/kbx_dsmi.h"
#include "platform/log.h"

namespace {

constexpr uint32_t DEVICE_SCAN_ATTEMPTS = 600;
constexpr uint32_t DEVICE_SCAN_INTERVAL_MS = 1000;
constexpr int32_t HDC_MAX_SESSION_NUM = 96;
constexpr int32_t HDC_SERVICE_TYPE = 4;
constexpr uint32_t ERROR_TEXT_LEN = 128;
constexpr int32_t ERROR_INTERRUPTED = 4;

void InitGlobalCtrlInfo(GlobalCtrlInfo& info) {
    if (info.inited == 1) {
        return;
    }
    TIV_LOGI("Init GlobalCtrlInfo");
    info.client = nullptr;
    const bool mutexMade = mmMutexInit(&info.mutex) == 0;
    if (!mutexMade) {
        TIV_LOGE("global info mutex init error");
    }
    const bool semMade = mmSemInit(&info.notifySem, 0) == 0;
    if (!semMade) {
        TIV_LOGE("device notify sem init error");
    }
    if (mutexMade && semMade) {
        info.syncInited = 1;
    }
    info.stopping = false;
    info.serverCreateRun = 1;
    info.sessionAcceptRun = 1;
    info.inited = 1;
}

// Asks for the devices until there is one or the attempts are used up. Returns the last result.
int32_t ScanDevices(uint32_t& devNum, std::vector<uint32_t>& phyIds) {
    int32_t ret = -1;
    for (uint32_t attempt = 0; attempt < DEVICE_SCAN_ATTEMPTS; ++attempt) {
        devNum = 0;
        ret = IdeGetPhyDevList(&devNum, phyIds.data(), DEVICE_LIST_LEN);
        TIV_LOGI("Device Counts: %u", devNum);
        if (ret == 0 && devNum != 0) {
            break;
        }
        (void)mmSleep(DEVICE_SCAN_INTERVAL_MS);
    }
    return ret;
}

// True when the semaphore was posted; interruptions are waited out.
bool WaitForDevices(GlobalCtrlInfo& info) {
    while (mmSemWait(&info.notifySem) != 0) {
        if (mmGetErrorCode() != ERROR_INTERRUPTED) {
            TIV_LOGE("dev sem wait error");
            return false;
        }
    }
    return true;
}

bool StartServerThread(const std::shared_ptr<DeviceInfo>& device) {
    TIV_LOGI("Create HdcServer");
    device->threadShare = device;
    const mmUserBlock block = {IdeDaemonHdcHandleEvent, device.get()};
    const mmThreadAttr attr = IdeDetachedThreadAttr();
    mmThread thread{};
    const int32_t ret = mmCreateTaskWithThreadAttr(&thread, &block, &attr);
    if (ret != 0) {
        device->threadShare.reset();
        char text[ERROR_TEXT_LEN] = {0};
        TIV_LOGE("Thread Create error: %s",
                 mmGetErrorFormatMessage(mmGetErrorCode(), text, ERROR_TEXT_LEN));
        return false;
    }
    device->thread = thread;
    device->threadCreated = 1;
    return true;
}

// Starts the missing server threads; the mutex is held.
bool StartServerThreads(GlobalCtrlInfo& info) {
    for (auto& entry : info.devices) {
        if (entry.second->threadCreated == 0 && !StartServerThread(entry.second)) {
            return false;
        }
    }
    return true;
}

// Takes the servers away from their threads and empties the table; the mutex is held.
void DestroyServers(GlobalCtrlInfo& info) {
    for (auto& entry : info.devices) {
        const HDC_SERVER server =
            entry.second->threadCreated != 0 ? entry.second->server.exchange(nullptr) : nullptr;
        const int32_t err = server == nullptr ? 0 : drvHdcServerDestroy(server);
        if (err != 0) {
            TIV_LOGI("Hdc Server Destroy Err Code: %d, dev Id: %u", err, entry.first);
        }
    }
    info.devices.clear();
}

void DestroySync(GlobalCtrlInfo& info) {
    TIV_LOGI("Destroy GlobalCtrlInfo");
    info.notifyCallbacks.clear();
    const bool semGone = mmSemDestroy(&info.notifySem) == 0;
    if (!semGone) {
        TIV_LOGE("device notify sem destroy error");
    }
    const bool mutexGone = mmMutexDestroy(&info.mutex) == 0;
    if (!mutexGone) {
        TIV_LOGE("global info mutex dertroy error");
    }
    if (semGone && mutexGone) {
        info.syncInited = 0;
    }
}

void DestroyGlobalCtrlInfo(GlobalCtrlInfo& info) {
    info.stopping = true;
    TIV_LOGI("Destroy GlobalCtrlInfo");
    if (mmMutexLock(&info.mutex) != 0) {
        TIV_LOGE("mutex lock error");
        return;
    }
    DestroyServers(info);
    if (mmMutexUnLock(&info.mutex) != 0) {
        TIV_LOGE("mutex lock error");
        return;
    }
    if (info.client != nullptr) {
        const int32_t err = drvHdcClientDestroy(info.client);
        info.client = nullptr;
        if (err != 0) {
            TIV_LOGI("Hdc Client Destroy Err Code: %d", err);
        }
    }
    info.serverCreateRun = 0;
    info.sessionAcceptRun = 0;
    if (mmSemPost(&info.notifySem) != 0) {
        TIV_LOGE("notify sem post error");
        return;
    }
    if (info.syncInited != 0) {
        DestroySync(info);
    }
    info.inited = 0;
}

// Adds the records that are missing, as far as memory reaches; the mutex is held.
void AddRecords(GlobalCtrlInfo& info, uint32_t devNum, const uint32_t* phyIds) {
    try {
        for (uint32_t i = 0; i < devNum; ++i) {
            if (info.devices.count(phyIds[i]) != 0) {
                continue;
            }
            auto device = std::make_shared<DeviceInfo>();
            device->phyDevId = phyIds[i];
            device->serviceType = HDC_SERVICE_TYPE;
            (void)info.devices.emplace(phyIds[i], std::move(device));
        }
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
    }
}

int32_t InitComponent() {
    GlobalCtrlInfo& info = GetGlobalCtrlInfo();
    InitGlobalCtrlInfo(info);
    uint32_t devNum = 0;
    std::vector<uint32_t> phyIds(DEVICE_LIST_LEN, 0);
    const int32_t ret = ScanDevices(devNum, phyIds);
    if (ret != 0) {
        return ret;
    }
    if (devNum > DEVICE_LIST_LEN) {
        TIV_LOGE("device num %u", devNum);
        return -1;
    }
    if (devNum > 0) {
        TIV_LOGI("device count: %u", devNum);
        IdeDaemonHdcRegisterDevices(devNum, phyIds.data());
    }
    const int32_t err = drvHdcClientCreate(&info.client, HDC_MAX_SESSION_NUM, HDC_SERVICE_TYPE, 0);
    if (err != 0 || info.client == nullptr) {
        TIV_LOGE("Hdc Client Create, Max Session Num: %d", HDC_MAX_SESSION_NUM);
        return -1;
    }
    return 0;
}

}  // namespace

void IdeDaemonHdcRegisterDevices(uint32_t devNum, const uint32_t* phyIds) {
    if (devNum == 0 || devNum > DEVICE_LIST_LEN) {
        TIV_LOGE("server register input error; device num is %u", devNum);
        return;
    }
    GlobalCtrlInfo& info = GetGlobalCtrlInfo();
    if (mmMutexLock(&info.mutex) != 0) {
        TIV_LOGE("mutex lock error");
        return;
    }
    for (uint32_t i = 0; i < info.notifyCallbacks.size(); ++i) {
        TIV_LOGI("register %u notify callbacks %u", devNum, i);
        info.notifyCallbacks[i](devNum, phyIds);
    }
    AddRecords(info, devNum, phyIds);
    if (mmMutexUnLock(&info.mutex) != 0) {
        TIV_LOGE("mutex lock error");
    }
    (void)mmSemPost(&info.notifySem);
    TIV_LOGI("notify %u device up", devNum);
}

int32_t IdeDaemonHdcInit() {
    try {
        return InitComponent();
    } catch (const std::exception& error) {
        TIV_LOGE("Init of HDC failed, message: %s", error.what());
        return -1;
    }
}

void IdeDaemonHdcCreateServers() {
    TIV_LOGI("Hdc Create HdcServer Entry");
    GlobalCtrlInfo& info = GetGlobalCtrlInfo();
    while (info.serverCreateRun != 0) {
        if (!WaitForDevices(info)) {
            return;
        }
        if (info.serverCreateRun != 1) {
            break;
        }
        if (mmMutexLock(&info.mutex) != 0) {
            TIV_LOGE("mutex lock error");
            return;
        }
        const bool started = StartServerThreads(info);
        const int32_t unlocked = mmMutexUnLock(&info.mutex);
        if (!started) {
            return;
        }
        if (unlocked != 0) {
            TIV_LOGE("mutex lock error");
            return;
        }
    }
    TIV_LOGI("Hdc Create HdcServer Exit");
}

int32_t IdeDaemonHdcDestroy() {
    GlobalCtrlInfo& info = GetGlobalCtrlInfo();
    if (info.inited == 1) {
        DestroyGlobalCtrlInfo(info);
    }
    IdeWaitForSessionThreads();
    TIV_LOGI("Hdc Destroy Exit");
    return 0;
}
