// The recorded results as rows, and their files in pieces of any size.
#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>

#include "host/export_bench.h"
#include "host/result/channel_parser.h"
#include "host/result/memory_parser.h"
#include "host/result/process_parsers.h"
#include "host/result/profile_parser.h"
#include "host/result/system_cpu_parser.h"
#include "host/result_parse.h"

using namespace tiv::host;
using namespace tiv::test;

namespace {

std::string Bytes(const std::string& name) {
    std::ifstream file(Golden(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Feeds `bytes` in pieces of random sizes.
void FeedPieces(FileParser& parser, std::string_view bytes, std::mt19937& random) {
    while (!bytes.empty()) {
        const size_t piece = std::min<size_t>(bytes.size(), random() % 700 + 1);
        parser.Feed(bytes.substr(0, piece));
        bytes.remove_prefix(piece);
    }
    parser.Finish();
}

using MakeParser = std::function<std::unique_ptr<FileParser>(const ParseContext& context)>;

// Holds that twenty ways to cut the file give the rows of the whole one.
void ExpectSameRowsInPieces(const std::string& name, const MakeParser& make) {
    const std::string bytes = Bytes(name);
    std::mt19937 random(20261121);
    std::vector<std::string> whole;
    for (int round = 0; round < 20; ++round) {
        TableLog log;
        TimeSpan span;
        const auto parser = make({0, log, span});
        if (round == 0) {
            parser->Feed(bytes);
            parser->Finish();
            whole = log.lines;
        } else {
            FeedPieces(*parser, bytes, random);
        }
        ASSERT_EQ(whole, log.lines) << name;
        EXPECT_EQ(0u, parser->UnreadableBytes()) << name;
    }
    EXPECT_FALSE(whole.empty()) << name;
}

}  // namespace

TEST(GoldenResult, AnyCutOfAFileGivesTheSameRows) {
    MemoryKeys keys;
    uint32_t lastChannel = 0;
    ExpectSameRowsInPieces("complete/device_0/data/SystemCpuUsage.data", [](const auto& context) {
        return std::make_unique<SystemCpuParser>(context);
    });
    ExpectSameRowsInPieces("complete/device_0/data/Memory.data", [&](const auto& context) {
        keys = MemoryKeys();
        return std::make_unique<MemoryParser>(context, keys);
    });
    ExpectSameRowsInPieces("profile/device_0/data/ai_ctrl_cpu.data", [](const auto& context) {
        return std::make_unique<ProfileParser>(context);
    });
    ExpectSameRowsInPieces("complete/device_0/data/llc.data", [&](const auto& context) {
        lastChannel = 0;
        return std::make_unique<ChannelParser>(context, ChannelContext{"llc", lastChannel});
    });
}

TEST(GoldenResult, AnyCutOfAProcessGivesTheSameRows) {
    for (const char* name : {"20", "21", "23", "25"}) {
        std::unique_ptr<ProcessLives> lives;
        uint64_t lastProcess = 0;
        const auto begin = [&](const ParseContext& context) {
            lastProcess = 0;
            lives = std::make_unique<ProcessLives>(context, std::stoul(name), lastProcess);
        };
        const std::string path = std::string("complete/device_0/data/") + name;
        ExpectSameRowsInPieces(path + "-CpuUsage.data", [&](const auto& context) {
            begin(context);
            return std::make_unique<ProcessCpuParser>(context, *lives, 100);
        });
        ExpectSameRowsInPieces(path + "-Memory.data", [&](const auto& context) {
            begin(context);
            return std::make_unique<ProcessMemoryParser>(context, *lives, 4096);
        });
    }
}

TEST(GoldenResult, EveryRecordBecomesRows) {
    const auto rows = RowsOf(Golden("complete"));
    const auto records = [](const std::string& name) {
        const std::string bytes = Bytes("complete/device_0/data/" + name);
        size_t count = 0;
        for (size_t at = bytes.find("TimeStamp:"); at != std::string::npos;
             at = bytes.find("TimeStamp:", at + 1)) {
            ++count;
        }
        return count;
    };

    EXPECT_EQ(3 * records("SystemCpuUsage.data"), CountRows(rows, "cpu"));
    EXPECT_EQ(54 * records("Memory.data"), CountRows(rows, "memory"));
    EXPECT_EQ(54u, CountRows(rows, "key"));
    size_t readings = 0;
    for (const char* pid : {"1", "20", "21", "22", "23", "24", "25", "32", "33"}) {
        readings += records(std::string(pid) + "-CpuUsage.data");
    }
    EXPECT_EQ(readings, CountRows(rows, "process_cpu"));
    EXPECT_EQ(9u, CountRows(rows, "process"));
}

TEST(GoldenResult, NothingOfItIsUnreadable) {
    for (const char* name : {"complete", "profile", "incomplete"}) {
        for (const std::string& row : RowsOf(Golden(name))) {
            if (row.rfind("file ", 0) == 0) {
                EXPECT_NE(std::string::npos, row.find(" 0 in 0 unreadable")) << row;
            }
        }
    }
}
