// Start, requests and end of the profiling component.
#include "device/prof_device_core.h"

#include <exception>
#include <memory>
#include <string>

#include "config/param_validation.h"
#include "device/collection_entry.h"
#include "device/task_manager.h"
#include "hdc/hdc_api.h"
#include "hdc/hdc_transport_factory.h"
#include "platform/log.h"

namespace {

using analysis::rokt::common::validation::ParamValidation;
using analysis::rokt::device::CollectionEntry;
using analysis::rokt::device::TaskManager;
using analysis::rokt::transport::HDCTransportFactory;
using analysis::rokt::transport::ITransport;
using analysis::rokt::transport::MESSAGE_CONTAINER_NO_SUPPORT;

using TransportPtr = std::shared_ptr<ITransport>;

int InitComponent() {
    if (CollectionEntry::Instance().Init() != 0) {
        TIV_LOGE("CollectionEntry instance init failed");
        return -1;
    }
    return TaskManager::Instance().Init();
}

int CleanupComponent() {
    if (CollectionEntry::Instance().Uninit() != 0) {
        TIV_LOGE("CollectionEntry instance unInit failed");
    }
    return TaskManager::Instance().Uninit();
}

// Checks the request and the session's device. On 0 `devIndexId` is the device's own index.
int CheckRequest(HDC_SESSION session, const IdeTlvReq* request, int32_t& devIndexId) {
    if (request == nullptr || request->len < 1 || request->len > PROFILE_REQUEST_MAX_LEN) {
        TIV_LOGE("HDC request is invalid");
        return -1;
    }
    const int err = IdeGetDevIdBySession(session, &devIndexId);
    if (err != 0) {
        TIV_LOGE("IdeGetDevIdBySession failed, err: %d", err);
        return -1;
    }
    if (!ParamValidation::Instance().CheckDeviceIdIsValid(std::to_string(devIndexId))) {
        TIV_LOGE("[IdeDeviceProfileProcess]devIndexId is not valid! devIndexId: %d", devIndexId);
        return -1;
    }
    return 0;
}

// Makes the transport that owns the session from then on. Null for a request that is refused; the
// session is then still open.
TransportPtr AdoptSession(HDC_SESSION session, const IdeTlvReq* request, int32_t& devIndexId) {
    if (CheckRequest(session, request, devIndexId) != 0) {
        return nullptr;
    }
    TransportPtr transport = HDCTransportFactory().CreateHdcTransport(session);
    if (transport == nullptr) {
        TIV_LOGE("create HDC transport failed");
    }
    return transport;
}

int RefuseContainer(ITransport& transport, int32_t vfId) {
    TIV_LOGW("Prohibit container operate profiling, vfId=%d.", vfId);
    const std::string text = MESSAGE_CONTAINER_NO_SUPPORT;
    if (transport.SendBuffer(text.c_str(), static_cast<int>(text.size())) == -1) {
        TIV_LOGE("Transport send buffer failed.");
        return -1;
    }
    return 0;
}

int ServeSession(const TransportPtr& transport, HDC_SESSION session, const IdeTlvReq* request,
                 int32_t devIndexId) {
    int32_t vfId = 0;
    const int err = IdeGetVfIdBySession(session, &vfId);
    if (err != 0) {
        TIV_LOGE("Ide get vfid by session failed, ret=%d.", err);
        return -1;
    }
    if (vfId != 0) {
        return RefuseContainer(*transport, vfId);
    }
    TIV_LOGI("device %d step handle function", devIndexId);
    const std::string value(request->value, request->len);
    return CollectionEntry::Instance().Handle(transport, value, devIndexId);
}

int ProcessSession(HDC_SESSION session, const IdeTlvReq* request) {
    TransportPtr transport;
    int32_t devIndexId = -1;
    try {
        transport = AdoptSession(session, request, devIndexId);
        if (transport != nullptr) {
            return ServeSession(transport, session, request, devIndexId);
        }
    } catch (const std::exception& e) {
        TIV_LOGE("A profiling request was dropped, device=%d: %s", devIndexId, e.what());
    }
    if (transport == nullptr) {
        HdcSessionClose(session);
    }
    return -1;
}

}  // namespace

int32_t IdeDeviceProfileInit() {
    TIV_EVENT("Begin to init profiling");
    int ret = -1;
    try {
        ret = InitComponent();
    } catch (const std::exception& e) {
        TIV_LOGE("Init of profiling failed: %s", e.what());
    }
    TIV_EVENT("End to init profiling, ret:%d", ret);
    return ret;
}

int32_t IdeDeviceProfileProcess(HDC_SESSION session, const IdeTlvReq* request) {
    TIV_EVENT("Begin to process profiling");
    int ret = -1;
    if (session == nullptr) {
        TIV_LOGE("HDC session is invalid");
    } else {
        ret = ProcessSession(session, request);
    }
    TIV_EVENT("End to process profiling, ret:%d", ret);
    return ret;
}

int32_t IdeDeviceProfileCleanup() {
    TIV_EVENT("Begin to cleanup profiling");
    int ret = -1;
    try {
        ret = CleanupComponent();
    } catch (const std::exception& e) {
        TIV_LOGE("Cleanup of profiling failed: %s", e.what());
    }
    TIV_EVENT("End to cleanup profiling, ret:%d", ret);
    return ret;
}
