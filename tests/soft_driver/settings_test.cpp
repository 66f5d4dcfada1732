// The configuration file: defaults, values, and complaints with their JSON paths.
#include "soft_driver/settings.h"

#include <gtest/gtest.h>

#include "driver_bench.h"

namespace tiv::soft_driver {
namespace {

Settings Parsed(const std::string& text) {
    Settings settings;
    std::string error;
    EXPECT_TRUE(ParseSettings(text, &settings, &error)) << error;
    return settings;
}

std::string Complaint(const std::string& text) {
    Settings settings;
    std::string error = "none";
    EXPECT_FALSE(ParseSettings(text, &settings, &error));
    return error;
}

void ExpectDefaults(const Settings& settings) {
    ASSERT_EQ(1u, settings.devices.size());
    EXPECT_EQ(0u, settings.devices[0].logicalId);
    EXPECT_EQ(0u, settings.devices[0].physicalId);
    EXPECT_EQ(5u, settings.devices[0].chipId);
    EXPECT_EQ(0u, settings.devices[0].chipVersion);
    EXPECT_FALSE(settings.devices[0].hostFrequencyKhz.has_value());
    EXPECT_FALSE(settings.devices[0].channels.has_value());
    EXPECT_EQ(0u, settings.platformInfo);
    EXPECT_EQ(465157, settings.apiVersion);
    EXPECT_TRUE(settings.resourceManagerReady);
    EXPECT_FALSE(settings.virtualFunctionId.has_value());
    EXPECT_EQ(524288u, settings.segmentBytes);
    EXPECT_EQ(30000u, settings.stallLimitMs);
    EXPECT_EQ(1048576u, settings.sendBufferBytes);
    EXPECT_EQ(1048576u, settings.receiveBufferBytes);
}

TEST(Settings, WithoutAFileTheDefaultsHold) { ExpectDefaults(Settings()); }

TEST(Settings, EmptyObjectGivesTheDefaults) { ExpectDefaults(Parsed("{}")); }

TEST(Settings, ScalarsAreTaken) {
    const Settings settings = Parsed(
        R"({"platform_info": 1, "api_version": 7, "resource_manager_ready": false,
            "virtual_function_id": 3, "segment_bytes": 1024, "stall_limit_ms": 20,
            "send_buffer_bytes": 8192, "receive_buffer_bytes": 16384})");

    EXPECT_EQ(1u, settings.platformInfo);
    EXPECT_EQ(7, settings.apiVersion);
    EXPECT_FALSE(settings.resourceManagerReady);
    EXPECT_EQ(3, settings.virtualFunctionId.value());
    EXPECT_EQ(1024u, settings.segmentBytes);
    EXPECT_EQ(20u, settings.stallLimitMs);
    EXPECT_EQ(8192u, settings.sendBufferBytes);
    EXPECT_EQ(16384u, settings.receiveBufferBytes);
}

TEST(Settings, NumberOfDevicesCountsIdsFromZero) {
    const Settings settings = Parsed(R"({"devices": 100, "chip_id": 2})");

    ASSERT_EQ(100u, settings.devices.size());
    EXPECT_EQ(99u, settings.devices[99].logicalId);
    EXPECT_EQ(99u, settings.devices[99].physicalId);
    EXPECT_EQ(2u, settings.devices[99].chipId);
}

TEST(Settings, ZeroDevicesAreAllowed) { EXPECT_TRUE(Parsed(R"({"devices": 0})").devices.empty()); }

TEST(Settings, DeviceGoesBeforeTheTopLevel) {
    const Settings settings = Parsed(
        R"({"chip_id": 2, "chip_version": 5, "info": {"2.3": 8},
            "devices": [{"logical_id": 3, "physical_id": 9, "chip_id": 7, "info": {"2.3": -4}}, {}]})");

    ASSERT_EQ(2u, settings.devices.size());
    EXPECT_EQ(3u, settings.devices[0].logicalId);
    EXPECT_EQ(9u, settings.devices[0].physicalId);
    EXPECT_EQ(7u, settings.devices[0].chipId);
    EXPECT_EQ(5u, settings.devices[0].chipVersion);
    EXPECT_EQ(-4, settings.devices[0].info.at({2, 3}));
    EXPECT_EQ(1u, settings.devices[1].logicalId);
    EXPECT_EQ(8, settings.devices[1].info.at({2, 3}));
}

TEST(Settings, ChannelHasDefaultsBesideItsId) {
    const Settings settings = Parsed(R"({"channels": [{"id": 8}]})");

    const ChannelSettings channel = settings.devices.at(0).channels.value().at(0);
    EXPECT_EQ(8u, channel.id);
    EXPECT_EQ("channel_8", channel.name);
    EXPECT_EQ(1u, channel.type);
    EXPECT_EQ(33554432u, channel.ringBytes);
    EXPECT_EQ(0u, channel.holdBackBytes);
    EXPECT_EQ(SourceKind::SILENT, channel.source.kind);
}

void ExpectSourceDefaults(const SourceSettings& source) {
    EXPECT_EQ(SourceKind::SILENT, source.kind);
    EXPECT_TRUE(source.events.empty());
    EXPECT_FALSE(source.eventsAreDefault);
    EXPECT_FALSE(source.perCpu);
    EXPECT_EQ(100u, source.periodMs);
    EXPECT_EQ(0u, source.bytesPerSecond);
    EXPECT_EQ(0u, source.burstBytes);
    EXPECT_EQ(0u, source.limitBytes);
    EXPECT_EQ("", source.file);
    EXPECT_FALSE(source.loop);
}

TEST(Settings, FieldsOutsideTheKindOfASourceKeepTheirDefaults) {
    const Settings settings = Parsed(R"({"channels": [{"id": 8}]})");

    ExpectSourceDefaults(settings.devices.at(0).channels.value().at(0).source);
    ExpectSourceDefaults(ChannelSettings().source);
    EXPECT_EQ(0u, ChannelSettings().id);
    EXPECT_EQ(0u, ChannelSettings().type);
    EXPECT_EQ(33554432u, ChannelSettings().ringBytes);
    EXPECT_EQ(0u, ChannelSettings().holdBackBytes);
}

TEST(Settings, SourcesTakeTheirKeys) {
    const Settings settings = Parsed(
        R"({"channels": [
            {"id": 1, "source": "perf", "events": ["page-faults"], "per_cpu": true, "period_ms": 5},
            {"id": 2, "source": "counter", "bytes_per_second": 80, "burst_bytes": 16, "limit_bytes": 32},
            {"id": 3, "source": "replay", "file": "/x", "loop": true}, {"id": 4, "source": "perf"}]})");

    const std::vector<ChannelSettings> channels = settings.devices.at(0).channels.value();
    EXPECT_EQ(std::vector<std::string>{"page-faults"}, channels.at(0).source.events);
    EXPECT_TRUE(channels.at(0).source.perCpu);
    EXPECT_EQ(5u, channels.at(0).source.periodMs);
    EXPECT_EQ(80u, channels.at(1).source.bytesPerSecond);
    EXPECT_EQ(16u, channels.at(1).source.burstBytes);
    EXPECT_EQ(32u, channels.at(1).source.limitBytes);
    EXPECT_EQ("/x", channels.at(2).source.file);
    EXPECT_TRUE(channels.at(2).source.loop);
    EXPECT_EQ((std::vector<std::string>{"LLC-loads", "LLC-stores"}), channels.at(3).source.events);
    EXPECT_TRUE(channels.at(3).source.eventsAreDefault);
}

TEST(Settings, UnknownKeyIsNamedWithItsPath) {
    EXPECT_EQ("$.devises: is no key of this object", Complaint(R"({"devises": 1})"));
    EXPECT_EQ("$.devices[1].channels[0].rate: is no key of this object",
              Complaint(R"({"devices": [{}, {"channels": [{"id": 8, "rate": 1}]}]})"));
}

TEST(Settings, KeyOfAnotherSourceIsUnknown) {
    EXPECT_EQ("$.channels[0].loop: is no key of this object",
              Complaint(R"({"channels": [{"id": 8, "source": "counter", "loop": true}]})"));
}

TEST(Settings, NumbersOutOfRangeAreNamedWithTheRange) {
    EXPECT_EQ("$.segment_bytes: must be a whole number from 1024 to 524288",
              Complaint(R"({"segment_bytes": 1023})"));
    EXPECT_EQ("$.segment_bytes: must be a whole number from 1024 to 524288",
              Complaint(R"({"segment_bytes": 524289})"));
    EXPECT_EQ("$.stall_limit_ms: must be a whole number from 1 to 2147483647",
              Complaint(R"({"stall_limit_ms": -1})"));
    EXPECT_EQ("$.channels[0].id: must be a whole number from 1 to 160",
              Complaint(R"({"channels": [{"id": 161}]})"));
    EXPECT_EQ(
        "$.channels[0].hold_back_bytes: must be a whole number from 0 to 32768",
        Complaint(R"({"channels": [{"id": 8, "ring_bytes": 65536, "hold_back_bytes": 32769}]})"));
}

TEST(Settings, WrongKindsAreNamed) {
    EXPECT_EQ("$: must be an object", Complaint("[]"));
    EXPECT_EQ("$.resource_manager_ready: must be true or false",
              Complaint(R"({"resource_manager_ready": 1})"));
    EXPECT_EQ("$.channels[0].name: must be a string",
              Complaint(R"({"channels": [{"id": 8, "name": 8}]})"));
    EXPECT_EQ("$.devices[0]: must be an object", Complaint(R"({"devices": [4]})"));
    EXPECT_EQ("$.info.23: must be named <module>.<info>", Complaint(R"({"info": {"23": 1}})"));
    EXPECT_EQ("$.info.2.3: must be a whole number of 64 bits",
              Complaint(R"({"info": {"2.3": 1.5}})"));
}

TEST(Settings, ListsOfAnotherKindOrLengthAreNamed) {
    EXPECT_EQ("$.info: must be an object", Complaint(R"({"info": 5})"));
    const std::string devices =
        "$.devices: must be a number from 0 to 4096 or a list of at most 4096 devices";
    EXPECT_EQ(devices, Complaint(R"({"devices": "4"})"));
    EXPECT_EQ(devices, Complaint(R"({"devices": 4097})"));
    const std::string channels = "$.channels: must be a list of at most 160 channels";
    EXPECT_EQ(channels, Complaint(R"({"channels": 8})"));
    std::string tooMany = R"({"id": 1})";
    for (int i = 0; i < 160; ++i) {
        tooMany += R"(,{"id": 1})";
    }
    EXPECT_EQ(channels, Complaint(R"({"channels": [)" + tooMany + "]}"));
}

TEST(Settings, ListMayTell4096Devices) {
    std::string devices = "{}";
    for (int i = 1; i < 4096; ++i) {
        devices += ",{}";
    }

    EXPECT_EQ(4096u, Parsed(R"({"devices": [)" + devices + "]}").devices.size());
    EXPECT_EQ("$.devices: must be a number from 0 to 4096 or a list of at most 4096 devices",
              Complaint(R"({"devices": [)" + devices + ",{}]}"));
}

TEST(Settings, AnswerIsNamedByTwoNumbersAndADot) {
    for (const std::string name :
         {"2", "2.", ".3", "2.3x", "2.3.4", "-2.3", "+2.3", " 2.3", "2. 3", "2.1234567890"}) {
        EXPECT_EQ("$.info." + name + ": must be named <module>.<info>",
                  Complaint(R"({"info": {")" + name + R"(": 1}})"));
    }
    EXPECT_EQ(1, Parsed(R"({"info": {"2.123456789": 1}})").devices[0].info.at({2, 123456789}));
}

TEST(Settings, AnswerHas64BitsWithASign) {
    const auto answer = [](const std::string& value) {
        return R"({"info": {"2.3": )" + value + "}}";
    };

    EXPECT_EQ(INT64_MAX, Parsed(answer("9223372036854775807")).devices[0].info.at({2, 3}));
    EXPECT_EQ(INT64_MIN, Parsed(answer("-9223372036854775808")).devices[0].info.at({2, 3}));
    EXPECT_EQ("$.info.2.3: must be a whole number of 64 bits",
              Complaint(answer("9223372036854775808")));
}

std::string EventsComplaint(const std::string& events) {
    return Complaint(R"({"channels": [{"id": 1, "source": "perf", "events": )" + events + "}]}");
}

TEST(Settings, EventListsThatNameNoEventsAreNamed) {
    const std::string list = "$.channels[0].events: must be a list of 1 to 64 event names";
    EXPECT_EQ(list, EventsComplaint(R"("page-faults")"));
    EXPECT_EQ(list, EventsComplaint("[]"));
    std::string tooMany = R"("page-faults")";
    for (int i = 0; i < 64; ++i) {
        tooMany += R"(,"page-faults")";
    }
    EXPECT_EQ(list, EventsComplaint("[" + tooMany + "]"));
    EXPECT_EQ("$.channels[0].events[1]: must be a string", EventsComplaint(R"(["page-faults",4])"));
}

TEST(Settings, FrequenciesAreTakenPerDevice) {
    const Settings settings = Parsed(
        R"({"host_frequency_khz": 2000000, "devices": [{"device_frequency_khz": 48000}, {}]})");

    EXPECT_EQ(2000000, settings.devices.at(0).hostFrequencyKhz.value());
    EXPECT_EQ(48000, settings.devices.at(0).deviceFrequencyKhz.value());
    EXPECT_EQ(2000000, settings.devices.at(1).hostFrequencyKhz.value());
    EXPECT_FALSE(settings.devices.at(1).deviceFrequencyKhz.has_value());
}

TEST(Settings, DuplicatesAreNamed) {
    EXPECT_EQ("$.devices[1].logical_id: is used twice",
              Complaint(R"({"devices": [{}, {"logical_id": 0, "physical_id": 4}]})"));
    EXPECT_EQ("$.devices[1].physical_id: is used twice",
              Complaint(R"({"devices": [{}, {"physical_id": 0}]})"));
    EXPECT_EQ("$.channels[1].id: is used twice",
              Complaint(R"({"channels": [{"id": 8}, {"id": 8}]})"));
}

TEST(Settings, SourceMistakesAreNamed) {
    EXPECT_EQ("$.channels[0].id: is missing", Complaint(R"({"channels": [{}]})"));
    EXPECT_EQ("$.channels[0].source: must be perf, counter, replay or silent",
              Complaint(R"({"channels": [{"id": 8, "source": "tape"}]})"));
    EXPECT_EQ(
        "$.channels[0].events[1]: names no hardware, cache or software event: tea",
        Complaint(
            R"({"channels": [{"id": 8, "source": "perf", "events": ["page-faults", "tea"]}]})"));
    EXPECT_EQ("$.channels[0].file: must name the file to replay",
              Complaint(R"({"channels": [{"id": 8, "source": "replay"}]})"));
    EXPECT_EQ("$.channels[0].burst_bytes: needs bytes_per_second",
              Complaint(R"({"channels": [{"id": 8, "source": "counter", "burst_bytes": 8}]})"));
    EXPECT_EQ("$.channels[0].name: must have at most 31 bytes",
              Complaint(R"({"channels": [{"id": 8, "name": ")" + std::string(32, 'n') + R"("}]})"));
}

TEST(Settings, OfSeveralMistakesOfACounterItsLimitIsToldFirst) {
    EXPECT_EQ(0u, Complaint(R"({"channels": [{"id": 8, "source": "counter", "limit_bytes": -1,
                                              "bytes_per_second": -1}]})")
                      .find("$.channels[0].limit_bytes: "));
}

TEST(Settings, BrokenJsonIsToldWithItsPlace) {
    const std::string complaint = Complaint("{\n  \"devices\": ,\n}");

    EXPECT_NE(std::string::npos, complaint.find("line 2, column 14")) << complaint;
}

TEST(Settings, EightLevelsAreNotTooDeep) {
    EXPECT_EQ("$: must be an object", Complaint("[[[[[[[[1]]]]]]]]"));
    EXPECT_EQ("$: is nested deeper than 8 levels", Complaint("[[[[[[[[[1]]]]]]]]]"));
}

TEST(Settings, NameMayHave31Bytes) {
    const std::string name(31, 'n');
    const Settings settings = Parsed(R"({"channels": [{"id": 8, "name": ")" + name + R"("}]})");

    EXPECT_EQ(name, settings.devices.at(0).channels.value().at(0).name);
}

TEST(Settings, DeepNestingIsRefusedWithoutRecursion) {
    EXPECT_EQ("$: is nested deeper than 8 levels", Complaint(std::string(2000000, '[')));
}

class ProcessSettingsTest : public test::DriverBench {};

TEST_F(ProcessSettingsTest, UnusableFileFailsEveryCallAndIsToldOnce) {
    Configure(R"({"devices": [{"chip_id": 256}]})");
    ::testing::internal::CaptureStderr();
    uint32_t count = 7;
    int32_t version = 7;
    HDC_SERVER server = nullptr;

    EXPECT_EQ(-1, drvGetDevNum(&count));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, halGetAPIVersion(&version));
    EXPECT_EQ(-1, drvHdcServerCreate(0, 4, &server));
    uint32_t side = 7;
    int64_t info = 7;
    HdcCapacity capacity{};
    EXPECT_EQ(-1, drvGetPlatformInfo(&side));
    EXPECT_EQ(-1, halGetDeviceInfo(0, 0, 1, &info));
    EXPECT_EQ(-1, drvHdcGetCapacity(&capacity));
    ProfDrvChannelList list{};
    EXPECT_EQ(-1, prof_drv_get_channels(0, &list));

    EXPECT_EQ("tiv_driver: warning: driver configuration cannot be used: file=" +
                  directory_.Path("driver.json") +
                  ": $.devices[0].chip_id: must be a whole number from 0 to 255\n",
              ::testing::internal::GetCapturedStderr());
    EXPECT_EQ(7u, count);
}

TEST_F(ProcessSettingsTest, UnusableFileNumbersNoDevicesAndConnectsToNone) {
    Configure("[]");
    uint32_t id = 7;
    HDC_CLIENT client = nullptr;
    HDC_SESSION session = nullptr;
    ASSERT_EQ(0, drvHdcClientCreate(&client, 1, test::SERVICE, 0));

    EXPECT_EQ(-1, drvGetDevIDs(&id, 1));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, drvGetDeviceLocalIDs(&id, 1));
    EXPECT_EQ(-1, drvDeviceGetPhyIdByIndex(0, &id));
    errno = 0;
    EXPECT_EQ(-1, drvDeviceGetIndexByPhyId(0, &id));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_EQ(-1, drvHdcSessionConnect(0, 0, client, &session));
    EXPECT_EQ(EINVAL, errno);

    EXPECT_EQ(7u, id);
    EXPECT_EQ(nullptr, session);
}

// What the driver says when it is told to read this file; "" when it can use it.
std::string ComplaintOfFile(const std::string& path) {
    setenv("TIV_DRIVER_CONFIG", path.c_str(), 1);
    ::testing::internal::CaptureStderr();
    uint32_t count = 0;
    const int32_t result = drvGetDevNum(&count);
    const std::string line = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(line.empty() ? 0 : -1, result);
    const std::string head = "tiv_driver: warning: driver configuration cannot be used: file=";
    return line.rfind(head + path + ": ", 0) == 0 ? line.substr(head.size() + path.size() + 2)
                                                  : line;
}

TEST_F(ProcessSettingsTest, MissingFileIsAnErrorToo) {
    EXPECT_EQ("No such file or directory\n", ComplaintOfFile(directory_.Path("absent.json")));
}

TEST_F(ProcessSettingsTest, FileThatCannotBeReadIsAnErrorToo) {
    EXPECT_EQ("Is a directory\n", ComplaintOfFile(directory_.MakeDir("driver.json")));
}

constexpr size_t LARGEST_FILE = 4194304;

TEST_F(ProcessSettingsTest, FileMayHave4MiB) {
    const std::string text = "{" + std::string(LARGEST_FILE - 2, ' ') + "}";

    EXPECT_EQ("", ComplaintOfFile(directory_.Write("driver.json", text)));
}

TEST_F(ProcessSettingsTest, FileOfMoreThan4MiBIsAnErrorToo) {
    const std::string text = "{" + std::string(LARGEST_FILE - 1, ' ') + "}";

    EXPECT_EQ("File too large\n", ComplaintOfFile(directory_.Write("driver.json", text)));
}

TEST_F(ProcessSettingsTest, EmptyNameIsNoFile) { EXPECT_EQ("", ComplaintOfFile("")); }

}  // namespace
}  // namespace tiv::soft_driver
