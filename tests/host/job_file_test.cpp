// Job files, and the schema that describes them.
#include "host/job_file.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "host/job_check.h"
#include "host/job_schema.h"
#include "host/job_settings.h"
#include "support/temp_dir.h"

namespace tiv::host {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

class JobFile : public testing::Test {
 protected:
    std::string Read(const std::string& text) {
        return ReadJobFile(directory.Write("job.json", text), options);
    }
    static test::JobSchema Schema() {
        std::ifstream file(TIV_JOB_SCHEMA);
        return test::JobSchema(json::parse(file));
    }
    // What `tivctl check` decides about a file that says no more than this.
    bool IsTaken(const std::string& text) {
        options = CollectOptions();
        return Read(text).empty() && CheckOptions(options).empty();
    }

    const test::TempDir directory;
    CollectOptions options;
};

constexpr const char* WHOLE = R"({
    "$schema": "docs/job.schema.json",
    "devices": [3, 1], "duration": "2s", "repeat": 3, "every": "5s",
    "samplers": ["cpu", "processes"], "llc": "write", "ctrlCpu": ["0x11", "0x3c"],
    "interval": "250ms", "pageSize": 65536, "tickRate": 250,
    "sampleConfig": {"llc_interval": 7, "app": "a", "flag": true},
    "output": "results", "wait": "20s", "drainTimeout": "5m"})";

}  // namespace

TEST_F(JobFile, EveryKeyReachesItsOption) {
    ASSERT_EQ(Read(WHOLE), "");

    EXPECT_EQ(options.devices, (std::vector<int>{3, 1}));
    EXPECT_EQ(options.duration, std::optional<std::chrono::milliseconds>(2s));
    EXPECT_EQ(options.every, std::optional<std::chrono::milliseconds>(5s));
    EXPECT_EQ(options.repeat, 3);
    EXPECT_TRUE(options.cpu && options.processes && !options.memory);
    EXPECT_EQ(options.llcEvents, (std::vector<std::string>{"write"}));
    EXPECT_EQ(options.ctrlCpuEvents, (std::vector<std::string>{"0x11", "0x3c"}));
    EXPECT_EQ(options.interval, 250ms);
    EXPECT_EQ(options.pageBytes, 65536);
    EXPECT_EQ(options.ticksPerSecond, 250);
    EXPECT_EQ(options.output, "results");
    EXPECT_EQ(options.wait, 20s);
    EXPECT_EQ(options.drainTimeout, 5min);
    const std::vector<std::pair<std::string, std::string>> settings = {
        {"app", "a"}, {"flag", "true"}, {"llc_interval", "7"}};
    EXPECT_EQ(options.settings, settings);
}

TEST_F(JobFile, WhatItDoesNotNameStays) {
    options.repeat = 9;

    ASSERT_EQ(Read(R"({"command": ["ls", "-l"]})"), "");

    EXPECT_EQ(options.repeat, 9);
    EXPECT_EQ(options.command, (std::vector<std::string>{"ls", "-l"}));
}

TEST_F(JobFile, UnknownKeyIsToldWithTheKnownOnes) {
    const std::string error = Read(R"({"durations": "1s"})");

    EXPECT_NE(error.find("there is no key \"durations\"; the keys are $schema, devices, duration"),
              std::string::npos)
        << error;
}

TEST_F(JobFile, FilesThatCannotBeReadAreTold) {
    EXPECT_EQ(ReadJobFile(directory.Path("none"), options),
              "cannot read the job file " + directory.Path("none") +
                  ": No such file or directory; name a file that holds a job in JSON");
    EXPECT_NE(ReadJobFile(directory.Path(), options).find("Is a directory"), std::string::npos);
    EXPECT_NE(Read("{\"devices\": [").find("is no JSON"), std::string::npos);
    EXPECT_NE(Read("[]").find("must hold one object"), std::string::npos);
    EXPECT_NE(Read(std::string((1 << 20) + 1, ' ')).find("larger than 1 MiB"), std::string::npos);
    EXPECT_NE(Read(std::string(100000, '[')), "");
}

TEST_F(JobFile, NumbersBeyondTheirFieldAreNoNumbers) {
    EXPECT_NE(Read(R"({"repeat": 4294967297})"), "");
    EXPECT_NE(Read(R"({"devices": [2147483648]})"), "");
    EXPECT_NE(Read(R"({"tickRate": 18446744073709551615})"), "");
    EXPECT_NE(Read(R"({"pageSize": 4096.5})"), "");
    EXPECT_NE(Read(R"({"repeat": -4294967297})"), "");
}

TEST_F(JobFile, SchemaAndToolTakeTheSameFiles) {
    const std::vector<std::string> good = {"{}",
                                           WHOLE,
                                           R"({"command": ["./prog", "-v"]})",
                                           R"({"ctrlCpu": ["0x11"], "interval": "1ms"})",
                                           R"({"duration": "1.5h", "samplers": []})",
                                           R"({"sampleConfig": {"hwts_log": "on"}})"};
    for (const std::string& text : good) {
        EXPECT_TRUE(Schema().Accepts(json::parse(text))) << text;
        EXPECT_TRUE(IsTaken(text)) << text;
    }
}

TEST_F(JobFile, SchemaAndToolRefuseTheSameFiles) {
    const std::vector<std::string> bad = {
        R"({"device": [0]})",
        R"({"devices": 0})",
        R"({"devices": []})",
        R"({"devices": [64]})",
        R"({"devices": [1, 1]})",
        R"({"devices": ["1"]})",
        R"({"duration": 10})",
        R"({"duration": "soon"})",
        R"({"duration": "1s", "repeat": 0})",
        R"({"command": "ls"})",
        R"({"samplers": ["gpu"]})",
        R"({"samplers": "cpu"})",
        R"({"llc": "miss"})",
        R"({"llc": ["read"]})",
        R"({"ctrlCpu": ["11"]})",
        R"({"ctrlCpu": ["0x"]})",
        R"({"ctrlCpu": ["0x1","0x1","0x1","0x1","0x1","0x1","0x1","0x1","0x1"]})",
        R"({"pageSize": 512})",
        R"({"tickRate": 0})",
        R"({"tickRate": "100"})",
        R"({"sampleConfig": []})",
        R"({"sampleConfig": {"app": null}})",
        R"({"output": 1})",
        R"({"drainTimeout": 60})",
        R"({"drainTimeout": "later"})",
        "[]"};
    for (const std::string& text : bad) {
        EXPECT_FALSE(Schema().Accepts(json::parse(text))) << text;
        EXPECT_FALSE(IsTaken(text)) << text;
    }
}

}  // namespace tiv::host
