// The device table of the daemon and what its threads share.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "platform/driver_api.h"
#include "platform/mm_api.h"

// Names of the shell's threads. The session threads add "_" and the name of the request's type when
// they know it; no thread carries the monitor's name, which stays reserved.
constexpr const char* IDE_HDC_SERVER_THREAD_NAME = "ide_hdc_server";
constexpr const char* IDE_HDC_PROCESS_THREAD_NAME = "ide_hdc_process";
constexpr const char* IDE_DEV_MONITOR_THREAD_NAME = "ide_dev_monitor";

// One device and its accept loop.
//
// The server thread of a record and the teardown share it without a lock: `server` is given up by
// exchange, so that whoever takes the handle out destroys it, once.
struct DeviceInfo {
    mmThread thread{};
    uint32_t phyDevId = 0;              // constant once the record is in the table
    std::atomic<uint32_t> logDevId{0};  // looked up anew on each server creation
    uint8_t threadCreated = 0;          // guarded by GlobalCtrlInfo::mutex
    uint32_t serviceType = 0;           // constant once the record is in the table
    std::atomic<HDC_SERVER> server{nullptr};
    std::atomic<uint8_t> removed{0};

    // The server thread's own share of the record, which it takes over when it starts: the table
    // may drop its share at any moment.
    std::shared_ptr<DeviceInfo> threadShare;
};

using DeviceNotifyCallback = std::function<void(uint32_t devNum, const uint32_t* devIds)>;

// The process-wide structure of the HDC component. It is made once and never destroyed: detached
// threads may look at its flags until the process is gone.
struct GlobalCtrlInfo {
    HDC_CLIENT client = nullptr;                              // main thread
    std::vector<DeviceNotifyCallback> notifyCallbacks;        // main thread
    std::map<uint32_t, std::shared_ptr<DeviceInfo>> devices;  // by physical id; guarded by mutex
    mmMutex mutex{};
    mmSem notifySem{};
    std::atomic<uint8_t> syncInited{0};
    std::atomic<uint8_t> serverCreateRun{0};
    std::atomic<uint8_t> sessionAcceptRun{0};
    std::atomic<uint8_t> inited{0};

    // Set before the teardown takes the servers away: from then on no server thread makes a server
    // or touches the mutex.
    std::atomic<bool> stopping{false};
};

GlobalCtrlInfo& GetGlobalCtrlInfo();

// Attributes of every thread of the daemon shell: detached, 128 KiB of stack.
mmThreadAttr IdeDetachedThreadAttr();
