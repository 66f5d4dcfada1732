// The component table and its passes.
#include "daemon/ide_common_util.h"

#include <csignal>

#include <atomic>
#include <cstdio>

#include "platform/log.h"

namespace {

struct ComponentTable {
    std::atomic<int32_t (*)()> init[IDE_COMPONENT_NUM];
    std::atomic<int32_t (*)()> destroy[IDE_COMPONENT_NUM];
    std::atomic<void (*)()> unused[IDE_COMPONENT_NUM];
    std::atomic<int32_t (*)(HDC_SESSION, const IdeTlvReq*)> hdcProcess[IDE_COMPONENT_NUM];
};

// Constant-initialised and trivially destroyed: session threads may still read it while the process
// ends.
ComponentTable ideComponentsFuncs;

struct ComponentRow {
    uint32_t component;
    uint32_t requestType;
    const char* name;
    const char* label;
};

constexpr ComponentRow IDE_COMPONENT_ROWS[] = {
    {0, 17, "hook_reg", nullptr},
    {IDE_COMPONENT_HDC, 17, "hdc", nullptr},
    {IDE_COMPONENT_PROFILING, 5, "profiling", "Profiling"},
    {IDE_COMPONENT_NUM, 18, "default", nullptr},
};

constexpr const char* DEFAULT_NAME = "default";

void ClearSlot(uint32_t slot) {
    ideComponentsFuncs.init[slot].store(nullptr, std::memory_order_relaxed);
    ideComponentsFuncs.destroy[slot].store(nullptr, std::memory_order_relaxed);
    ideComponentsFuncs.unused[slot].store(nullptr, std::memory_order_relaxed);
    ideComponentsFuncs.hdcProcess[slot].store(nullptr, std::memory_order_relaxed);
}

// Returns 0, or -1 when the failure of this slot ends the pass.
int32_t InitSlot(uint32_t slot) {
    const auto init = ideComponentsFuncs.init[slot].load(std::memory_order_relaxed);
    if (init == nullptr) {
        return 0;
    }
    const char* name = IdeComponentName(slot);
    if (init() == 0) {
        TIV_LOGI("call [%s] init function succ", name);
        return 0;
    }
    TIV_LOGE("call [%s] init function failed", name);
    std::printf("init [%s] failed\n", name);
    std::fflush(stdout);
    return slot == IDE_COMPONENT_HDC ? -1 : 0;
}

}  // namespace

void RegisterComponent(uint32_t slot, const IdeComponentsFuncs& funcs) {
    if (slot >= IDE_COMPONENT_NUM) {
        return;
    }
    ideComponentsFuncs.init[slot].store(funcs.init, std::memory_order_relaxed);
    ideComponentsFuncs.destroy[slot].store(funcs.destroy, std::memory_order_relaxed);
    ideComponentsFuncs.unused[slot].store(funcs.unused, std::memory_order_relaxed);
    ideComponentsFuncs.hdcProcess[slot].store(funcs.hdcProcess, std::memory_order_relaxed);
}

int32_t (*IdeComponentHdcProcess(uint32_t slot))(HDC_SESSION, const IdeTlvReq*) {
    if (slot >= IDE_COMPONENT_NUM) {
        return nullptr;
    }
    return ideComponentsFuncs.hdcProcess[slot].load(std::memory_order_relaxed);
}

const char* IdeComponentName(uint32_t component) {
    for (const ComponentRow& row : IDE_COMPONENT_ROWS) {
        if (row.component == component) {
            return row.name;
        }
    }
    return DEFAULT_NAME;
}

const char* IdeRequestName(uint32_t requestType) {
    for (const ComponentRow& row : IDE_COMPONENT_ROWS) {
        if (row.requestType == requestType) {
            return row.name;
        }
    }
    return DEFAULT_NAME;
}

uint32_t IdeComponentByRequest(const IdeTlvReq* request) {
    if (request == nullptr) {
        TIV_LOGE("input req is nullptr");
        return IDE_COMPONENT_NUM;
    }
    for (const ComponentRow& row : IDE_COMPONENT_ROWS) {
        if (row.requestType == request->type) {
            return row.component;
        }
    }
    return IDE_COMPONENT_NUM;
}

int32_t ide_Daemon_sub_init() {
    (void)signal(SIGPIPE, SIG_IGN);
    return 0;
}

int32_t IdeDaemonInit(int32_t (*subInit)()) {
    const int32_t subResult = subInit();
    if (subResult != 0) {
        TIV_LOGE("ide_Daemon_sub_init failed, err: %d", subResult);
        return subResult;
    }
    for (uint32_t slot = 0; slot < IDE_COMPONENT_NUM; ++slot) {
        if (InitSlot(slot) != 0) {
            return -1;
        }
    }
    TIV_LOGI("Daemon Init done");
    return 0;
}

void IdeDaemonDestroy() {
    for (uint32_t slot = IDE_COMPONENT_NUM; slot-- > 0;) {
        const auto destroy = ideComponentsFuncs.destroy[slot].load(std::memory_order_relaxed);
        if (destroy != nullptr) {
            if (destroy() != 0) {
                TIV_LOGE("call ideComponents Funcs destroy[%s] failed", IdeComponentName(slot));
            } else {
                TIV_LOGI("call ideComponents Funcs destroy[%s] success", IdeComponentName(slot));
            }
        }
        ClearSlot(slot);
    }
}
