// tivctl devices: what the driver library tells, and what the daemons answer.
#include "host/tivctl_bench.h"

namespace tiv::test {
namespace {

using nlohmann::json;

class TivctlDevices : public TivctlTest {
 protected:
    ~TivctlDevices() override { unsetenv("TIV_DRIVER_CONFIG"); }

    void ConfigureDriver(const std::string& text) const {
        setenv("TIV_DRIVER_CONFIG", directory_.Write("driver.json", text).c_str(), 1);
    }
    void Start(std::vector<std::string> words) {
        words.insert(words.begin(), "devices");
        tivctl_ = std::make_unique<TivctlRun>(directory_, words);
    }
    json List(std::vector<std::string> words, int exitCode) {
        words.emplace_back("--json");
        Start(std::move(words));
        EXPECT_EQ(exitCode, tivctl_->Wait()) << tivctl_->Errors();
        EXPECT_EQ(0u, tivctl_->Output().find("{\n  \"")) << "indented by two, for people";
        return json::parse(tivctl_->Output());
    }
};

constexpr const char* TWO_DEVICES = R"({
    "devices": [
        {"chip_id": 7, "info": {"2.3": 4, "4.3": 32}, "device_frequency_khz": 1250500,
         "channels": [{"id": 8, "name": "cache"}, {"id": 20}]},
        {"logical_id": 5, "channels": []}]})";

TEST_F(TivctlDevices, DevicesOfTheDriverLibraryAreToldWithChipAndChannels) {
    ConfigureDriver(TWO_DEVICES);

    const json list = List({}, 3);

    ASSERT_EQ(2u, list["devices"].size());
    const json& first = list["devices"][0];
    EXPECT_EQ(0, first["device"]);
    EXPECT_EQ("unreachable", first["state"]);
    EXPECT_EQ(7, first["chipType"]);
    EXPECT_EQ(4, first["ctrlCpuCores"]);
    EXPECT_EQ(32, first["aiCores"]);
    EXPECT_EQ("1250.500000", first["frequencyMhz"]);
    ASSERT_EQ(2u, first["channels"].size());
    EXPECT_EQ((json{{"id", 8}, {"name", "cache"}, {"type", 1}}), first["channels"][0]);
    EXPECT_EQ(5, list["devices"][1]["device"]);
}

TEST_F(TivctlDevices, WhatTheLibraryDoesNotTellIsNull) {
    ConfigureDriver(TWO_DEVICES);

    const json device = List({"--device", "3"}, 3)["devices"][0];

    EXPECT_TRUE(device["chipType"].is_null());
    EXPECT_TRUE(device["channels"].is_null());
    EXPECT_TRUE(device["ctrlCpuCores"].is_null());
    EXPECT_TRUE(device["aiCpuCores"].is_null());
    EXPECT_TRUE(device["frequencyMhz"].is_null());
}

TEST_F(TivctlDevices, PlatformTellsItsMetrics) {
    ConfigureDriver(TWO_DEVICES);

    const json platform = List({}, 3)["platform"];

    EXPECT_EQ(7, platform["type"]);
    EXPECT_EQ("48", platform["frequencyMhz"]);
    EXPECT_EQ("1250", platform["aiCoreFrequencyMhz"]);
    EXPECT_EQ(9u, platform["metrics"].size());
    EXPECT_EQ("0xF6,0xFB,0xFC,0xBF,0x90,0x91,0x9C,0x9D", platform["l2CacheEvents"]);
}

TEST_F(TivctlDevices, ReachableDeviceIsToldWithoutAHandshake) {
    Listen(0);
    Start({});
    const auto session = Accept();

    EXPECT_EQ("", session->Read()) << "it closes without a word";

    EXPECT_EQ(0, tivctl_->Wait()) << tivctl_->Errors();
    EXPECT_NE(std::string::npos, tivctl_->Output().find("0       reachable    5 "));
}

TEST_F(TivctlDevices, AcceptedProbeIsFree) {
    Listen(0);
    Start({"--probe", "--json"});
    const auto session = Accept();
    EXPECT_EQ("analysis.rokt.proto.CtrlChannelHandshake", session->ReadAndAnswer());

    EXPECT_EQ(0, tivctl_->Wait());

    EXPECT_EQ("", session->Read()) << "the session is given back";
    EXPECT_EQ("free", json::parse(tivctl_->Output())["devices"][0]["state"]);
}

TEST_F(TivctlDevices, RefusedProbeIsBusyWithTheDevicesWords) {
    Listen(0);
    Start({"--probe"});
    Accept()->ReadAndAnswer(1, "occupied");

    EXPECT_EQ(0, tivctl_->Wait());

    const std::string table = tivctl_->Output();
    EXPECT_NE(std::string::npos, table.find("0       busy "));
    EXPECT_NE(std::string::npos, table.find("device 0: control handshake refused: occupied\n"));
}

TEST_F(TivctlDevices, ProbeThatNobodyAnswersIsSilent) {
    Listen(0);
    Start({"--probe", "--json"});
    Accept()->Read();

    EXPECT_EQ(0, tivctl_->Wait());

    EXPECT_EQ("silent", json::parse(tivctl_->Output())["devices"][0]["state"]);
}

TEST_F(TivctlDevices, UnreachableDeviceIsToldWithWhatToTry) {
    Start({"--device", "9"});

    EXPECT_EQ(3, tivctl_->Wait());

    EXPECT_EQ(0u, tivctl_->Output().find("DEVICE  STATE        CHIP     CTRL CORES  CHANNELS\n"
                                         "9       unreachable  unknown  unknown     unknown\n"));
    EXPECT_NE(
        std::string::npos,
        tivctl_->Output().find("cannot reach device 9: No such file or directory; no daemon"));
    EXPECT_EQ("", tivctl_->Errors());
}

TEST_F(TivctlDevices, BrokenDriverConfigurationIsTold) {
    ConfigureDriver("{");
    Start({});

    EXPECT_EQ(3, tivctl_->Wait());

    EXPECT_NE(std::string::npos, tivctl_->Errors().find("driver configuration cannot be used"));
    EXPECT_NE(std::string::npos, tivctl_->Errors().find("mend the file that TIV_DRIVER_CONFIG"));
}

TEST_F(TivctlDevices, ProbeOfADeviceThatIsNotReachedIsToldSo) {
    const json device = List({"--probe", "--device", "9"}, 3)["devices"][0];

    EXPECT_EQ("unreachable", device["state"]);
    const std::string reason = device["reason"];
    EXPECT_EQ(0u, reason.find("cannot reach device 9: No such file or directory; no daemon"));
}

TEST_F(TivctlDevices, PlatformOfADriverThatTellsNothingIsUnknown) {
    ConfigureDriver("{");

    EXPECT_TRUE(List({"--device", "9"}, 3)["platform"].is_null());
    Start({"--device", "9"});

    EXPECT_EQ(3, tivctl_->Wait());

    const std::string table = tivctl_->Output();
    const std::string end = "\nplatform type: unknown\n";
    EXPECT_EQ(table.size() - end.size(), table.find(end)) << table;
}

TEST_F(TivctlDevices, ThreadThatCannotBeStartedIsTold) {
    Listen(0);
    const HugeStacks stacks;
    Start({"--probe"});

    EXPECT_EQ(1, tivctl_->Wait());

    EXPECT_EQ("tivctl: cannot go on: Resource temporarily unavailable\n", tivctl_->Errors());
    EXPECT_EQ("", tivctl_->Output());
}

TEST_F(TivctlDevices, BrokenDriverConfigurationIsToldAlsoForANamedDevice) {
    ConfigureDriver("{");
    Start({"--device", "9"});

    EXPECT_EQ(3, tivctl_->Wait());

    EXPECT_EQ(0u,
              tivctl_->Errors().find("tiv_driver: warning: driver configuration cannot be used"))
        << tivctl_->Errors();
    EXPECT_NE(std::string::npos, tivctl_->Output().find("the driver said above what is wrong"));
}

TEST_F(TivctlDevices, QuietLeavesTheExitCode) {
    Start({"--quiet"});

    EXPECT_EQ(3, tivctl_->Wait());

    EXPECT_EQ("", tivctl_->Output());
    EXPECT_EQ("", tivctl_->Errors());
}

TEST_F(TivctlDevices, DeviceNumbersAre0To63) {
    Start({"--device", "64"});

    EXPECT_EQ(2, tivctl_->Wait());
}

}  // namespace
}  // namespace tiv::test
