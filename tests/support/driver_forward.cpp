// The members that forward the driver interface to the driver library that this program is linked
// to.
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

#include "support/driver_functions.h"

namespace tiv::test {

namespace {

// This program has the first definition of each name, the library the next one.
template <typename Function>
void Forward(std::function<Function>& member, const char* name) {
    void* found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) {
        fprintf(stderr, "driver double: the driver library has no %s\n", name);
        abort();
    }
    member = reinterpret_cast<Function*>(found);
}

}  // namespace

void DriverFunctions::ForwardToLibrary() {
    Forward(drvHdcClientCreate, "drvHdcClientCreate");
    Forward(drvHdcClientDestroy, "drvHdcClientDestroy");
    Forward(drvHdcServerCreate, "drvHdcServerCreate");
    Forward(drvHdcServerDestroy, "drvHdcServerDestroy");
    Forward(drvHdcSessionAccept, "drvHdcSessionAccept");
    Forward(drvHdcSessionConnect, "drvHdcSessionConnect");
    Forward(halHdcSessionConnectEx, "halHdcSessionConnectEx");
    Forward(drvHdcSetSessionReference, "drvHdcSetSessionReference");
    Forward(drvHdcSessionClose, "drvHdcSessionClose");
    Forward(drvHdcAllocMsg, "drvHdcAllocMsg");
    Forward(drvHdcFreeMsg, "drvHdcFreeMsg");
    Forward(drvHdcReuseMsg, "drvHdcReuseMsg");
    Forward(drvHdcGetMsgBuffer, "drvHdcGetMsgBuffer");
    Forward(drvHdcAddMsgBuffer, "drvHdcAddMsgBuffer");
    Forward(halHdcRecv, "halHdcRecv");
    Forward(halHdcSend, "halHdcSend");
    Forward(drvHdcGetCapacity, "drvHdcGetCapacity");
    Forward(halHdcGetSessionAttr, "halHdcGetSessionAttr");
    Forward(drvGetDevNum, "drvGetDevNum");
    Forward(drvGetDeviceLocalIDs, "drvGetDeviceLocalIDs");
    Forward(drvDeviceGetPhyIdByIndex, "drvDeviceGetPhyIdByIndex");
    Forward(drvDeviceGetIndexByPhyId, "drvDeviceGetIndexByPhyId");
    Forward(halGetDeviceInfo, "halGetDeviceInfo");
    Forward(halGetAPIVersion, "halGetAPIVersion");
    Forward(drvGetDevIDs, "drvGetDevIDs");
    Forward(drvGetPlatformInfo, "drvGetPlatformInfo");
    Forward(prof_drv_get_channels, "prof_drv_get_channels");
    Forward(prof_drv_start, "prof_drv_start");
    Forward(prof_stop, "prof_stop");
    Forward(prof_channel_read, "prof_channel_read");
    Forward(prof_channel_poll, "prof_channel_poll");
    Forward(halProfDataFlush, "halProfDataFlush");
}

}  // namespace tiv::test
