// The component table of the daemon: registration, the init and destroy passes, and the look-ups
// between component numbers, request types and names.
//
// The table has 18 slots and no lock. It is written on the main thread before the server threads
// start; from then on session threads read it at any time, and the destroy pass clears it under
// them. Each entry is therefore one atomic function pointer.
#pragma once

#include <cstdint>

#include "hdc/request_packet.h"
#include "platform/driver_api.h"

// Component numbers. The value one past the last slot means no component at all.
constexpr uint32_t IDE_COMPONENT_HDC = 2;
constexpr uint32_t IDE_COMPONENT_PROFILING = 10;
constexpr uint32_t IDE_COMPONENT_HOOK = 17;
constexpr uint32_t IDE_COMPONENT_NUM = 18;

// What a component brings; a null entry is an empty one. All functions return 0 for success.
struct IdeComponentsFuncs {
    int32_t (*init)();
    int32_t (*destroy)();
    void (*unused)();
    // Runs on the session's own thread. The request stays the caller's.
    int32_t (*hdcProcess)(HDC_SESSION session, const IdeTlvReq* request);
};

// Copies the four entries into the table. A slot of 18 or above is ignored.
void RegisterComponent(uint32_t slot, const IdeComponentsFuncs& funcs);

// The handler of a slot, or null.
int32_t (*IdeComponentHdcProcess(uint32_t slot))(HDC_SESSION, const IdeTlvReq*);

// The name of a component number or a request type; "default" when no row knows it.
const char* IdeComponentName(uint32_t component);
const char* IdeRequestName(uint32_t requestType);

// The component of the first row with the request's type; 18 for an unknown type or a null request.
uint32_t IdeComponentByRequest(const IdeTlvReq* request);

// Ignores SIGPIPE. Returns 0.
int32_t ide_Daemon_sub_init();

// Calls every registered init in rising order of slots. Returns 0, or non-zero when `subInit` or
// the HDC component failed; any other failing component is logged and passed over.
int32_t IdeDaemonInit(int32_t (*subInit)() = ide_Daemon_sub_init);

// Calls every registered destroy in falling order of slots and clears the table.
void IdeDaemonDestroy();
