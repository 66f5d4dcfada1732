// Fixture of the tests that depend on the chip.
#pragma once

#include "config/config_manager.h"
#include "support/fake_driver.h"
#include "support/recorded_log_test.h"

namespace tiv::test {

class ChipTest : public RecordedLogTest {
 protected:
    ChipTest() { driver.Reset(); }

    // A manager that reads this chip. `chip` is what the driver tells: id in bits 8 to 15, version
    // below.
    Analysis::Rokt::Common::Config::ConfigManager ManagerOf(int64_t chip) {
        driver.SetDeviceInfo(0, 1, chip);
        return {};
    }

    // The same for the process-wide manager.
    void UseChip(int64_t chip) {
        driver.SetDeviceInfo(0, 1, chip);
        auto& manager = Analysis::Rokt::Common::Config::ConfigManager::Instance();
        manager.Uninit();
        manager.Init();
        log.Clear();
    }

    FakeDriver& driver = FakeDriver::Instance();
};

}  // namespace tiv::test
