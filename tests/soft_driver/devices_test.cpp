// What the driver answers about its devices, and what it exports.
#include <cstdio>
#include <memory>
#include <set>

#include "driver_bench.h"

namespace tiv::test {
namespace {

class Devices : public DriverBench {};

TEST_F(Devices, WithoutAFileThereIsOneOfType5OnTheDeviceSide) {
    uint32_t count = 0;
    uint32_t ids[2] = {9, 9};
    int64_t chip = 0;
    int32_t version = 0;
    uint32_t side = 9;

    EXPECT_EQ(0, drvGetDevNum(&count));
    EXPECT_EQ(1u, count);
    EXPECT_EQ(0, drvGetDeviceLocalIDs(ids, 2));
    EXPECT_EQ(0u, ids[0]);
    EXPECT_EQ(9u, ids[1]);
    EXPECT_EQ(0, halGetDeviceInfo(0, 0, 1, &chip));
    EXPECT_EQ(5 << 8, chip);
    EXPECT_EQ(0, halGetAPIVersion(&version));
    EXPECT_EQ(465157, version);
    EXPECT_EQ(0, drvGetPlatformInfo(&side));
    EXPECT_EQ(0u, side);
}

TEST_F(Devices, IdsAreCutAtTheLengthAsked) {
    Configure(R"({"devices": 100})");
    uint32_t ids[65] = {};
    ids[64] = 4242;

    EXPECT_EQ(0, drvGetDeviceLocalIDs(ids, 64));
    EXPECT_EQ(63u, ids[63]);
    EXPECT_EQ(0, drvGetDevIDs(ids, 64));
    EXPECT_EQ(4242u, ids[64]);
}

TEST_F(Devices, LogicalAndPhysicalIdsFollowTheFile) {
    Configure(R"({"devices": [{"physical_id": 7}, {"physical_id": 3}]})");
    uint32_t id = 0;

    EXPECT_EQ(0, drvDeviceGetPhyIdByIndex(0, &id));
    EXPECT_EQ(7u, id);
    EXPECT_EQ(0, drvDeviceGetIndexByPhyId(3, &id));
    EXPECT_EQ(1u, id);
    EXPECT_EQ(-1, drvDeviceGetPhyIdByIndex(2, &id));
    EXPECT_EQ(ENODEV, errno);
    EXPECT_EQ(-1, drvDeviceGetIndexByPhyId(0, &id));
    EXPECT_EQ(ENODEV, errno);
}

TEST_F(Devices, QueriesWithoutAnAnswerAreNotSupportedAndLeaveTheValue) {
    int64_t value = 42;

    EXPECT_EQ(65534, halGetDeviceInfo(0, 2, 3, &value));
    EXPECT_EQ(65534, halGetDeviceInfo(0, 0, 24, &value));
    EXPECT_EQ(65534, halGetDeviceInfo(0, 0, 25, &value));
    EXPECT_EQ(42, value);
    EXPECT_EQ(-1, halGetDeviceInfo(1, 0, 1, &value));
    EXPECT_EQ(ENODEV, errno);
}

TEST_F(Devices, NumbersNextToThoseWithAnAnswerAreNotSupported) {
    Configure(R"({"host_frequency_khz": 1000000, "device_frequency_khz": 48000})");
    int64_t value = 42;

    for (const int32_t info : {1, 24, 25}) {
        EXPECT_EQ(65534, halGetDeviceInfo(0, 1, info, &value)) << info;
    }
    for (const int32_t info : {0, 2, 23, 26}) {
        EXPECT_EQ(65534, halGetDeviceInfo(0, 0, info, &value)) << info;
    }
    EXPECT_EQ(ENOTSUP, errno);
    EXPECT_EQ(42, value);
}

TEST_F(Devices, FrequenciesAndOtherAnswersComeFromTheFile) {
    Configure(R"({"chip_id": 2, "chip_version": 5, "host_frequency_khz": 1000000,
                  "device_frequency_khz": 48000, "info": {"2.3": 8}})");
    int64_t value = 0;

    EXPECT_EQ(0, halGetDeviceInfo(0, 0, 1, &value));
    EXPECT_EQ(0x205, value);
    EXPECT_EQ(0, halGetDeviceInfo(0, 0, 24, &value));
    EXPECT_EQ(1000000, value);
    EXPECT_EQ(0, halGetDeviceInfo(0, 0, 25, &value));
    EXPECT_EQ(48000, value);
    EXPECT_EQ(0, halGetDeviceInfo(0, 2, 3, &value));
    EXPECT_EQ(8, value);
}

TEST_F(Devices, NullPointersAreRefused) {
    EXPECT_EQ(-1, drvGetDevNum(nullptr));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, drvGetDeviceLocalIDs(nullptr, 64));
    EXPECT_EQ(-1, drvGetDevIDs(nullptr, 64));
    EXPECT_EQ(-1, drvDeviceGetPhyIdByIndex(0, nullptr));
    EXPECT_EQ(-1, drvDeviceGetIndexByPhyId(0, nullptr));
    EXPECT_EQ(-1, halGetDeviceInfo(0, 0, 1, nullptr));
    EXPECT_EQ(-1, halGetAPIVersion(nullptr));
    EXPECT_EQ(-1, drvGetPlatformInfo(nullptr));
    EXPECT_EQ(-1, drvHdcGetCapacity(nullptr));
}

std::set<std::string> ExportedNames() {
    const std::unique_ptr<FILE, int (*)(FILE*)> nm(
        popen("nm -D --defined-only --format=posix " TIV_DRIVER_FILE, "r"), pclose);
    std::set<std::string> names;
    char name[256];
    while (fscanf(nm.get(), "%255s%*[^\n]", name) == 1) {
        names.insert(name);
    }
    return names;
}

TEST(Library, ExportsTheInterfaceAndNothingElse) {
    const std::set<std::string> interface = {"drvDeviceGetIndexByPhyId",
                                             "drvDeviceGetPhyIdByIndex",
                                             "drvGetDevIDs",
                                             "drvGetDevNum",
                                             "drvGetDeviceLocalIDs",
                                             "drvGetPlatformInfo",
                                             "drvHdcAddMsgBuffer",
                                             "drvHdcAllocMsg",
                                             "drvHdcClientCreate",
                                             "drvHdcClientDestroy",
                                             "drvHdcFreeMsg",
                                             "drvHdcGetCapacity",
                                             "drvHdcGetMsgBuffer",
                                             "drvHdcReuseMsg",
                                             "drvHdcServerCreate",
                                             "drvHdcServerDestroy",
                                             "drvHdcSessionAccept",
                                             "drvHdcSessionClose",
                                             "drvHdcSessionConnect",
                                             "drvHdcSetSessionReference",
                                             "halGetAPIVersion",
                                             "halGetDeviceInfo",
                                             "halHdcGetSessionAttr",
                                             "halHdcRecv",
                                             "halHdcSend",
                                             "halHdcSessionConnectEx",
                                             "halProfDataFlush",
                                             "prof_channel_poll",
                                             "prof_channel_read",
                                             "prof_drv_get_channels",
                                             "prof_drv_start",
                                             "prof_stop"};

    EXPECT_EQ(interface, ExportedNames());
}

}  // namespace
}  // namespace tiv::test
