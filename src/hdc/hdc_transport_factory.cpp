// Making of transports.
#include "hdc/hdc_transport_factory.h"

#include <exception>
#include <string>

#include "common/perf_count.h"
#include "common/utils.h"
#include "hdc/hdc_api.h"
#include "hdc/hdc_transport.h"
#include "platform/log.h"

namespace analysis {
namespace rokt {
namespace transport {

using Analysis::Rokt::Common::Statistics::HDC_TRANSPORT_NAME;
using Analysis::Rokt::Common::Statistics::PerfCount;
using common::utils::Utils;

namespace {

constexpr uint64_t PERF_PRINT_FREQUENCY = 128;
constexpr int MAX_DEVICE_ID = 63;

std::shared_ptr<ITransport> MakeTransport(HDC_SESSION session, bool isClient, HDC_CLIENT client) {
    try {
        return std::make_shared<HDCTransport>(session, isClient, client);
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
        return nullptr;
    }
}

// The transport with its counter, or null without it; then the session closes with the transport.
std::shared_ptr<ITransport> AddPerfCount(const std::shared_ptr<ITransport>& transport, int devId) {
    try {
        const std::string name = std::string(HDC_TRANSPORT_NAME) + "_" + std::to_string(devId);
        transport->perfCount = std::make_shared<PerfCount>(name, PERF_PRINT_FREQUENCY);
        return transport;
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
        return nullptr;
    }
}

// A transport for a session that nobody else knows of: it never stays open without an owner.
std::shared_ptr<ITransport> TakeOver(HDC_SESSION session, bool isClient, HDC_CLIENT client,
                                     int devId) {
    const std::shared_ptr<ITransport> transport = MakeTransport(session, isClient, client);
    if (transport == nullptr) {
        HdcSessionClose(session);
        return nullptr;
    }
    return AddPerfCount(transport, devId);
}

bool IsDeviceIdValid(int devId) {
    return Utils::CheckStringIsNonNegativeIntNum(std::to_string(devId)) && devId <= MAX_DEVICE_ID;
}

}  // namespace

std::shared_ptr<ITransport> HDCTransportFactory::CreateHdcTransport(HDC_SESSION session) {
    if (session == nullptr) {
        TIV_LOGE("HDC session is invalid");
        return nullptr;
    }
    const std::shared_ptr<ITransport> transport = MakeTransport(session, false, nullptr);
    if (transport == nullptr) {
        return nullptr;
    }
    int devId = 0;
    const int err = IdeGetDevIdBySession(session, &devId);
    if (err != 0) {
        TIV_LOGE("IdeGetDevIdBySession failed, err: %d", err);
        return nullptr;
    }
    if (!IsDeviceIdValid(devId)) {
        TIV_LOGE("[CreateHdcTransport]devId: %d is not valid!", devId);
        return nullptr;
    }
    TIV_LOGI("IdeGetDevIdBySession success, devid:%d", devId);
    return AddPerfCount(transport, devId);
}

std::shared_ptr<ITransport> HDCTransportFactory::CreateHdcServerTransport(int logicDevId,
                                                                          HDC_SERVER server) {
    TIV_LOGI("CreateHdcServerTransport begin, logicDevId:%d", logicDevId);
    if (server == nullptr) {
        TIV_LOGW("HDC server is invalid");
        return nullptr;
    }
    const HDC_SESSION session = HdcServerAccept(server);
    if (session == nullptr) {
        TIV_LOGW("HDC session is invalid");
        return nullptr;
    }
    std::shared_ptr<ITransport> transport = TakeOver(session, false, nullptr, logicDevId);
    if (transport != nullptr) {
        TIV_LOGI("CreateHdcServerTransport success, logicDevId:%d", logicDevId);
    }
    return transport;
}

std::shared_ptr<ITransport> HDCTransportFactory::CreateHdcTransport(HDC_CLIENT client, int devId) {
    if (client == nullptr) {
        TIV_LOGE("HDC client is invalid");
        return nullptr;
    }
    HDC_SESSION session = nullptr;
    const int ret = HdcSessionConnect(0, devId, client, &session);
    if (ret != 0) {
        TIV_LOGW("CreateHdcTransport failed, ret is %d", ret);
        return nullptr;
    }
    return TakeOver(session, true, nullptr, devId);
}

std::shared_ptr<ITransport> HDCTransportFactory::CreateHdcClientTransport(int hostPid, int devId,
                                                                          HDC_CLIENT client) {
    TIV_LOGI("CreateHdcClientTransport, hostPid:%d, devId:%d", hostPid, devId);
    HDC_SESSION session = nullptr;
    const int ret = HalHdcSessionConnect(0, devId, hostPid, client, &session);
    if (ret != 0) {
        TIV_LOGW("CreateHdcTransport failed, ret is %d", ret);
        return nullptr;
    }
    return TakeOver(session, true, client, devId);
}

}  // namespace transport
}  // namespace rokt
}  // namespace analysis
