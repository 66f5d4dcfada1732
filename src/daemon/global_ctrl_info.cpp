// The one device table of the process.
#include "daemon/global_ctrl_info.h"

namespace {

constexpr uint32_t HDC_THREAD_STACK_SIZE = 131072;

}  // namespace

GlobalCtrlInfo& GetGlobalCtrlInfo() {
    static GlobalCtrlInfo* info = new GlobalCtrlInfo();  // never destroyed: see the structure
    return *info;
}

mmThreadAttr IdeDetachedThreadAttr() {
    mmThreadAttr attr{};
    attr.detachFlag = 1;
    attr.threadStackFlag = 1;
    attr.stackSize = HDC_THREAD_STACK_SIZE;
    return attr;
}
