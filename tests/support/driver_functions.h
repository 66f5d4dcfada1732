// The functions of the driver interface as replaceable members, and what the C functions in front
// of them need.
#pragma once

#include <functional>

#include "platform/driver_api.h"
#include "support/fault_table.h"

namespace tiv::test {

// One member per function of the driver interface, under its own name. A test replaces members
// before the threads that call them start; while they run it uses the fault table.
struct DriverFunctions {
    std::function<decltype(::drvHdcClientCreate)> drvHdcClientCreate;
    std::function<decltype(::drvHdcClientDestroy)> drvHdcClientDestroy;
    std::function<decltype(::drvHdcServerCreate)> drvHdcServerCreate;
    std::function<decltype(::drvHdcServerDestroy)> drvHdcServerDestroy;
    std::function<decltype(::drvHdcSessionAccept)> drvHdcSessionAccept;
    std::function<decltype(::drvHdcSessionConnect)> drvHdcSessionConnect;
    std::function<decltype(::halHdcSessionConnectEx)> halHdcSessionConnectEx;
    std::function<decltype(::drvHdcSetSessionReference)> drvHdcSetSessionReference;
    std::function<decltype(::drvHdcSessionClose)> drvHdcSessionClose;
    std::function<decltype(::drvHdcAllocMsg)> drvHdcAllocMsg;
    std::function<decltype(::drvHdcFreeMsg)> drvHdcFreeMsg;
    std::function<decltype(::drvHdcReuseMsg)> drvHdcReuseMsg;
    std::function<decltype(::drvHdcGetMsgBuffer)> drvHdcGetMsgBuffer;
    std::function<decltype(::drvHdcAddMsgBuffer)> drvHdcAddMsgBuffer;
    std::function<decltype(::halHdcRecv)> halHdcRecv;
    std::function<decltype(::halHdcSend)> halHdcSend;
    std::function<decltype(::drvHdcGetCapacity)> drvHdcGetCapacity;
    std::function<decltype(::halHdcGetSessionAttr)> halHdcGetSessionAttr;

    std::function<decltype(::drvGetDevNum)> drvGetDevNum;
    std::function<decltype(::drvGetDeviceLocalIDs)> drvGetDeviceLocalIDs;
    std::function<decltype(::drvDeviceGetPhyIdByIndex)> drvDeviceGetPhyIdByIndex;
    std::function<decltype(::drvDeviceGetIndexByPhyId)> drvDeviceGetIndexByPhyId;
    std::function<decltype(::halGetDeviceInfo)> halGetDeviceInfo;
    std::function<decltype(::halGetAPIVersion)> halGetAPIVersion;
    std::function<decltype(::drvGetDevIDs)> drvGetDevIDs;
    std::function<decltype(::drvGetPlatformInfo)> drvGetPlatformInfo;

    std::function<decltype(::prof_drv_get_channels)> prof_drv_get_channels;
    std::function<decltype(::prof_drv_start)> prof_drv_start;
    std::function<decltype(::prof_stop)> prof_stop;
    std::function<decltype(::prof_channel_read)> prof_channel_read;
    std::function<decltype(::prof_channel_poll)> prof_channel_poll;
    std::function<int32_t(uint32_t, uint32_t, uint32_t*)> halProfDataFlush;

    // Sets every member to the function of the shared driver library behind this program.
    void ForwardToLibrary();

    // Faults and record. Names of arguments: device, channel, attr, service, session, server,
    // client, msg, len, flag, max, count, module, info, num, timeout.
    FaultTable calls;
};

// The set behind the C functions of this program; each double has its own.
DriverFunctions& DriverBehindTheInterface();

}  // namespace tiv::test
