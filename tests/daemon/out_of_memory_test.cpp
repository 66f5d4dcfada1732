// The HDC component when operator new fails.
#include <gtest/gtest.h>

#include "daemon/global_ctrl_info.h"
#include "daemon/ide_daemon_hdc.h"
#include "daemon/kbx_dsmi.h"
#include "support/failing_new.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace tiv::test {

constexpr size_t ID_LIST_BYTES = DEVICE_LIST_LEN * sizeof(uint32_t);

TEST(HdcMemory, InitWithoutRoomForItsListsFails) {
    FailNextNewOfAtLeast(ID_LIST_BYTES);

    EXPECT_EQ(IdeDaemonHdcInit(), -1);

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "Init of HDC failed, message: std::bad_alloc"));
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcClientCreate"), 0u);
    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);
}

TEST(HdcMemory, RecordThatFindsNoMemoryLeavesTheOthersAndTheLockFree) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    const auto lock = FakeMm::Instance().mmMutexLock;
    FakeMm::Instance().mmMutexLock = [lock](mmMutex* mutex) {
        FailNextNewOfAtLeast(sizeof(DeviceInfo));
        return lock(mutex);
    };
    const uint32_t ids[] = {0, 4};

    IdeDaemonHdcRegisterDevices(2, ids);

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_EQ(GetGlobalCtrlInfo().devices.size(), 1u);
    EXPECT_EQ(GetGlobalCtrlInfo().devices.count(4), 0u);
    FakeMm::Instance().mmMutexLock = lock;
    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);
}

}  // namespace tiv::test
