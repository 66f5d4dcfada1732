// Tests of a page of several devices.
#include "host/report_model_bench.h"

namespace tiv::host {
namespace {

// The bench with a second device.
class ReportDevicesTest : public ReportModelTest {
 protected:
    ReportDevicesTest() {
        ResultDirectory result = CompleteResult();
        result.devices.push_back({1, "device_1", "job-2", {}, true, true, "", "{}"});
        model.OnBegin(result);
    }

    void AddCpuOf(int deviceId, uint64_t timeNs, double user) {
        SystemCpuRow row{deviceId, timeNs, ALL_CORES, {}, {}};
        row.use.emplace();
        row.use->intervalNs = 100 * MS;
        row.use->percent[USER] = user;
        row.use->percent[IDLE] = 100 - user;
        model.OnSystemCpu(row);
    }
    void AddProcessOf(int deviceId, uint64_t process, uint64_t cpuMs, uint64_t residentBytes) {
        model.OnProcessCpu(
            {process, START + 100 * MS, 0, 0, 1, 'R', ProcessCpuUse{100 * MS, cpuMs * MS, 0}});
        model.OnProcessMemory({process, START + 100 * MS, 0, residentBytes, 0, 0, 0});
        model.OnProcess({deviceId, process, 7, 1, 1, "p", START, START + 100 * MS});
    }
};

TEST_F(ReportDevicesTest, ProcessesNameTheirDevice) {
    AddProcessOf(0, 1, 20, 4096);
    AddProcessOf(1, 2, 10, 8192);

    const DecodedPage page = Decode();
    const nlohmann::json table = page.Section("processes");

    EXPECT_EQ(table["columns"].back()["name"], "device");
    ASSERT_EQ(table["rows"].size(), 2u);
    for (const size_t device : {0u, 1u}) {
        EXPECT_EQ(table["rows"][device].size(), table["columns"].size());
        EXPECT_EQ(table["rows"][device].back(), device);
    }
    EXPECT_EQ(page.Section("process-cpu")["series"][0]["name"], "p (7) of device 0");
    EXPECT_EQ(page.Section("process-memory")["series"][0]["name"], "p (7) of device 1");
}

TEST_F(ReportDevicesTest, OtherProcessesAreThoseOfAllDevices) {
    for (uint64_t process = 1; process <= ProcessPart::SHOWN; ++process) {
        AddProcessOf(0, process, 50, 4096);
    }
    AddProcessOf(0, 100, 3, 4096);
    AddProcessOf(1, 101, 4, 4096);

    const DecodedPage page = Decode();

    const nlohmann::json others = page.Section("process-cpu")["series"].back();
    EXPECT_EQ(page.Column<float>(others["mean"])[1], 3 + 4);
}

TEST_F(ReportDevicesTest, EachDeviceHasItsPlotsAndTables) {
    AddCpuOf(0, START + 100 * MS, 30);
    AddCpuOf(1, START + 100 * MS, 40);

    const DecodedPage page = Decode();

    EXPECT_EQ(page.Section("cpu-0")["title"], "CPU by state of device 0");
    EXPECT_EQ(page.Section("cpu-1")["title"], "CPU by state of device 1");
    EXPECT_EQ(RowOf(page.Section("core-table-0"), "all")[1], 30);
    EXPECT_EQ(RowOf(page.Section("core-table-1"), "all")[1], 40);
    EXPECT_EQ(page.Column<float>(page.model["overview"])[1], 30);
}

TEST_F(ReportDevicesTest, CpuOfADeviceIsDrawnWhateverTheOthersHave) {
    model.OnSystemCpu({0, START, ALL_CORES, {}, {}});  // it died behind its first reading
    AddCpuOf(1, START + 100 * MS, 40);

    const DecodedPage page = Decode();

    EXPECT_TRUE(page.Section("cpu").is_null());
    EXPECT_TRUE(page.Section("cpu-0").is_null());
    EXPECT_EQ(page.Column<float>(page.Section("cpu-1")["series"][0]["mean"])[1], 40);
    EXPECT_EQ(page.Column<float>(page.model["overview"])[1], 40);
}

TEST_F(ReportDevicesTest, ClocksThatDifferAreTold) {
    AddCpuOf(0, START, 30);
    AddCpuOf(1, 1000 * START, 40);

    const DecodedPage page = Decode();

    EXPECT_EQ(FactOf(page, "0 s in the plots"),
              "15.888000000 s of the device's raw monotonic clock; the devices' clocks differ, "
              "each begins at 0");
    EXPECT_EQ(FactOf(page, "Device 1, job"), "job-2");
    EXPECT_EQ(FactOf(page, "Device 1, samplers"), "nothing that the manifest names");
}

}  // namespace
}  // namespace tiv::host
