// Results as a timeline, decoded with a schema of its own.
#include <sys/wait.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>

#include "host/export/perfetto_exporter.h"
#include "host/export_bench.h"
#include "perfetto_subset.pb.h"

using namespace tiv::host;
using namespace tiv::test;
using perfetto::Trace;
using perfetto::TracePacket;
using perfetto::TrackDescriptor;
using perfetto::TrackEvent;

namespace {

constexpr uint32_t RAW = 5;
constexpr uint32_t COUNTER = 4;

std::string Unzip(const std::string& path) {
    std::string bytes;
    gzFile file = gzopen(path.c_str(), "rb");
    std::string room(1 << 16, '\0');
    for (int got = 0; (got = gzread(file, room.data(), 1 << 16)) > 0;) {
        bytes.append(room, 0, static_cast<size_t>(got));
    }
    EXPECT_EQ(Z_OK, gzclose(file)) << "the stream is cut";
    return bytes;
}

// What a shell command prints; `status` is its exit status.
std::string Output(const std::string& command, int& status) {
    std::string text;
    FILE* pipe = popen(command.c_str(), "r");
    for (int c = 0; (c = std::fgetc(pipe)) != EOF;) {
        text += static_cast<char>(c);
    }
    status = pclose(pipe);
    return text;
}

// The names of a profile that were told so far; whatever they refer to stands before them.
struct KnownNames {
    void Take(const perfetto::InternedData& told) {
        for (const auto& text : told.function_names()) {
            texts.insert(text.iid());
        }
        for (const auto& module : told.mappings()) {
            modules.insert(module.iid());
        }
        for (const auto& frame : told.frames()) {
            EXPECT_EQ(1u, texts.count(frame.function_name_id()));
            EXPECT_EQ(1u, modules.count(frame.mapping_id()));
            EXPECT_TRUE(frames.insert(frame.iid()).second);
        }
        for (const auto& stack : told.callstacks()) {
            for (const uint64_t frame : stack.frame_ids()) {
                EXPECT_EQ(1u, frames.count(frame));
            }
            EXPECT_TRUE(stacks.insert(stack.iid()).second) << "told twice";
        }
    }
    std::set<uint64_t> texts;
    std::set<uint64_t> modules;
    std::set<uint64_t> frames;
    std::set<uint64_t> stacks;
};

class PerfettoExport : public testing::Test {
 protected:
    void Export(const std::string& result) {
        path_ = directory_.Path(result + ".pftrace.gz");
        ASSERT_EQ("", ExportResult(Golden(result), ExportFormat::PERFETTO, path_).error);
        Decode();
    }
    // Exports rows that `give` hands over.
    template <class Give>
    void ExportRows(const ResultDirectory& result, const ReadOutcome& outcome, Give give) {
        path_ = directory_.Path("rows.pftrace.gz");
        PerfettoExporter exporter(path_);
        ASSERT_TRUE(exporter.Open());
        exporter.OnBegin(result);
        give(exporter);
        exporter.OnEnd(outcome);
        ASSERT_TRUE(exporter.Commit()) << exporter.Error();
        Decode();
    }
    void Decode() {
        trace_.Clear();
        ASSERT_TRUE(trace_.ParseFromString(Unzip(path_)));
        for (const TracePacket& packet : trace_.packet()) {
            if (packet.has_track_descriptor()) {
                tracks_[packet.track_descriptor().uuid()] = packet.track_descriptor();
            }
        }
    }
    // The counters' values whose track is called `name`, time and value.
    std::vector<std::pair<uint64_t, double>> Values(const std::string& name) const {
        std::vector<std::pair<uint64_t, double>> values;
        for (const TracePacket& packet : trace_.packet()) {
            const TrackEvent& event = packet.track_event();
            if (packet.has_track_event() && event.type() == COUNTER &&
                tracks_.at(event.track_uuid()).name() == name) {
                values.emplace_back(packet.timestamp(),
                                    event.has_counter_value()
                                        ? static_cast<double>(event.counter_value())
                                        : event.double_counter_value());
            }
        }
        return values;
    }
    double Sum(const std::string& name) const {
        double sum = 0;
        for (const auto& [time, value] : Values(name)) {
            sum += value;
        }
        return sum;
    }
    std::vector<std::string> EventNames(uint32_t type) const {
        std::vector<std::string> names;
        for (const TracePacket& packet : trace_.packet()) {
            if (packet.has_track_event() && packet.track_event().type() == type) {
                names.push_back(packet.track_event().name());
            }
        }
        return names;
    }

    TempDir directory_;
    std::string path_;
    Trace trace_;
    std::map<uint64_t, TrackDescriptor> tracks_;
};

}  // namespace

TEST_F(PerfettoExport, PacketsStandInTheOrderThatReadersNeed) {
    for (const char* result : {"complete", "profile", "incomplete"}) {
        Export(result);
        ASSERT_GT(trace_.packet_size(), 2) << result;
        EXPECT_TRUE(trace_.packet(0).has_clock_snapshot()) << result;
        bool sawEvent = false;
        std::set<uint64_t> declared;
        for (int i = 1; i < trace_.packet_size(); ++i) {
            const TracePacket& packet = trace_.packet(i);
            if (packet.has_track_descriptor()) {
                EXPECT_FALSE(sawEvent) << "a track behind events";
                EXPECT_TRUE(declared.insert(packet.track_descriptor().uuid()).second);
            }
            sawEvent = sawEvent || packet.has_track_event() || packet.has_perf_sample();
            if (packet.has_track_event()) {
                EXPECT_EQ(1u, declared.count(packet.track_event().track_uuid()));
            }
        }
    }
}

TEST_F(PerfettoExport, EveryPacketHasItsSequenceAndEveryTimeItsClock) {
    for (const char* result : {"complete", "profile", "incomplete"}) {
        Export(result);
        for (const TracePacket& packet : trace_.packet()) {
            EXPECT_NE(0u, packet.trusted_packet_sequence_id());
            if (packet.has_track_event() || packet.has_perf_sample()) {
                EXPECT_EQ(RAW, packet.timestamp_clock_id());
                EXPECT_GT(packet.timestamp(), 0u);
            }
        }
        EXPECT_EQ(RAW, trace_.packet(0).clock_snapshot().primary_trace_clock());
        EXPECT_EQ(RAW, trace_.packet(0).clock_snapshot().clocks(0).clock_id());
        EXPECT_EQ(1, trace_.packet(0).clock_snapshot().clocks_size());
    }
}

TEST_F(PerfettoExport, GroupsNameTheirDevice) {
    Export("complete");
    std::set<std::string> names;
    for (const auto& [uuid, track] : tracks_) {
        names.insert(track.name());
    }

    for (const char* group : {"CPU of device 0", "memory of device 0", "job of device 0"}) {
        EXPECT_EQ(1u, names.count(group)) << group;
    }
}

TEST_F(PerfettoExport, ParentsAreDeclaredAndValuesAreNumbers) {
    Export("complete");

    for (const auto& [uuid, track] : tracks_) {
        EXPECT_NE(0u, uuid);
        EXPECT_TRUE(!track.has_parent_uuid() || tracks_.count(track.parent_uuid()) == 1);
    }
    for (const TracePacket& packet : trace_.packet()) {
        EXPECT_TRUE(std::isfinite(packet.track_event().double_counter_value()));
    }
}

TEST_F(PerfettoExport, CountersHoldWhatTheTablesHold) {
    ASSERT_EQ("",
              ExportResult(Golden("complete"), ExportFormat::SQLITE, directory_.Path("db")).error);
    OpenDatabase database(directory_.Path("db"));
    const auto number = [&](const std::string& sql) { return std::stod(database.Value(sql)); };
    Export("complete");

    EXPECT_DOUBLE_EQ(number("SELECT sum(cpu_pct) FROM process_cpu"), Sum("CPU"));
    EXPECT_DOUBLE_EQ(number("SELECT sum(resident_bytes) FROM process_memory"),
                     Sum("resident memory"));
    EXPECT_DOUBLE_EQ(number("SELECT sum(user_pct) FROM system_cpu WHERE core IS NULL"),
                     Sum("all cores user"));
    EXPECT_NEAR(number("SELECT sum(100 - idle_pct - iowait_pct) FROM system_cpu WHERE core = 1"),
                Sum("core 1 busy"), 1e-6);
    EXPECT_DOUBLE_EQ(number("SELECT sum(value) FROM memory_named WHERE name = 'MemFree'"),
                     Sum("MemFree"));
    EXPECT_NEAR(number("SELECT sum(per_second) FROM channel_count WHERE event = 0"),
                Sum("page-faults"), 1e-3);
    EXPECT_EQ(number("SELECT count(*) FROM channel_count WHERE event = 1 AND interval_ns"),
              static_cast<double>(Values("context-switches").size()));
}

TEST_F(PerfettoExport, RatesStandAtTheBeginOfTheirInterval) {
    ASSERT_EQ("",
              ExportResult(Golden("complete"), ExportFormat::SQLITE, directory_.Path("db")).error);
    OpenDatabase database(directory_.Path("db"));
    Export("complete");

    EXPECT_EQ(database.Value("SELECT min(time_ns - interval_ns) FROM system_cpu"),
              std::to_string(Values("all cores idle").front().first));
}

TEST_F(PerfettoExport, ProcessesHaveTheirNames) {
    Export("complete");
    std::set<std::string> names;
    for (const auto& [uuid, track] : tracks_) {
        names.insert(track.process().process_name());
    }

    for (const char* name : {"it's \"q\"", "a\nb) S 1", "<b>&amp;<i>", "caf\\xe9", "short-lived"}) {
        EXPECT_EQ(1u, names.count(name)) << name;
    }
}

TEST_F(PerfettoExport, CountersOfAProcessFallToZeroBehindItsLastReading) {
    Export("complete");
    std::map<uint64_t, std::pair<uint64_t, double>> last;
    for (const TracePacket& packet : trace_.packet()) {
        const TrackEvent& event = packet.track_event();
        if (packet.has_track_event() && tracks_[event.track_uuid()].name() == "CPU") {
            EXPECT_LT(last[event.track_uuid()].first, packet.timestamp());
            last[event.track_uuid()] = {packet.timestamp(), event.double_counter_value()};
        }
    }

    EXPECT_GE(last.size(), 8u);
    for (const auto& [uuid, value] : last) {
        EXPECT_EQ(0.0, value.second);
    }
}

TEST_F(PerfettoExport, ProfileSamplesReferToNamesThatStandBefore) {
    Export("profile");
    KnownNames names;
    size_t samples = 0;
    for (const TracePacket& packet : trace_.packet()) {
        names.Take(packet.interned_data());
        if (packet.has_perf_sample()) {
            ++samples;
            EXPECT_EQ(1u, names.stacks.count(packet.perf_sample().callstack_iid()));
            EXPECT_EQ(2u, packet.sequence_flags());
        }
    }

    EXPECT_EQ(CountRows(RowsOf(Golden("profile")), "sample"), samples);
    EXPECT_GT(names.stacks.size(), 10u);
}

TEST_F(PerfettoExport, EveryEventOfAProfileHasASequenceOfItsOwn) {
    const std::vector<StackFrame> stack = {{1, "f", 0, "[kernel.kallsyms]"}, {2, "g", 0, "m"}};
    ExportRows({}, {}, [&](PerfettoExporter& exporter) {
        for (const char* event : {"r11", "r3c", "r11"}) {
            exporter.OnProfileSample({0, 5, 1, std::nullopt, 77, "sh", event, 10, stack});
        }
        exporter.OnProfileSample({0, 6, 1, std::nullopt, std::nullopt, "sh", "r11", 10, stack});
    });
    std::map<uint32_t, std::vector<uint64_t>> counts;
    std::map<uint32_t, std::string> names;
    for (const TracePacket& packet : trace_.packet()) {
        const uint32_t sequence = packet.trusted_packet_sequence_id();
        if (packet.has_trace_packet_defaults()) {
            EXPECT_EQ(1u, packet.sequence_flags());
            names[sequence] =
                packet.trace_packet_defaults().perf_sample_defaults().timebase().name();
        } else if (packet.has_perf_sample()) {
            counts[sequence].push_back(packet.perf_sample().timebase_count());
            EXPECT_EQ(77u, packet.perf_sample().pid());
            EXPECT_EQ(1u, packet.perf_sample().cpu_mode());
        }
    }

    EXPECT_EQ((std::map<uint32_t, std::string>{{2, "r11"}, {3, "r3c"}}), names);
    EXPECT_EQ((std::vector<uint64_t>{10, 20}), counts[2]);
    EXPECT_EQ((std::vector<uint64_t>{10}), counts[3]);
}

TEST_F(PerfettoExport, ProcessIdThatCameRoundIsAPlainTrack) {
    ExportRows({}, {}, [](PerfettoExporter& exporter) {
        exporter.OnProcess({0, 1, 42, 5, 1, "old", 10, 20});
        exporter.OnProcess({0, 2, 42, 9, 1, "new", 30, 40});
        exporter.OnProcess({0, 3, 42, 11, 1, "", 50, 60});
    });
    std::set<std::string> plain;
    size_t processes = 0;
    for (const auto& [uuid, track] : tracks_) {
        processes += track.has_process() ? 1 : 0;
        plain.insert(track.name());
    }

    EXPECT_EQ(1u, processes);
    EXPECT_EQ(1u, plain.count("new 42, another process of this id"));
    EXPECT_EQ(1u, plain.count("(no name) 42, another process of this id"));
}

TEST_F(PerfettoExport, PairOfClockReadingsPlacesTheCollection) {
    ResultDirectory result;
    result.complete = true;
    result.devices.emplace_back();
    result.started = "2026-11-21T18:31:55.495Z";
    result.ended = "2026-11-21T18:31:57.500Z";
    result.clock = ClockPair{*WallNs(result.started), 5000000000};
    result.replays = {{result.started, result.ended}, {result.ended, ""}};
    ExportRows(result, {}, [](PerfettoExporter&) {});

    EXPECT_EQ(2, trace_.packet(0).clock_snapshot().clocks_size());
    EXPECT_EQ(5000000000u, trace_.packet(0).clock_snapshot().clocks(0).timestamp());
    EXPECT_EQ(1795285915495000000u, trace_.packet(0).clock_snapshot().clocks(1).timestamp());
    EXPECT_EQ((std::vector<std::string>{"collection", "replay 0"}), EventNames(1));
    EXPECT_EQ(5000000000u, trace_.packet(trace_.packet_size() - 2).timestamp());
    EXPECT_EQ(7005000000u, trace_.packet(trace_.packet_size() - 1).timestamp());
}

TEST_F(PerfettoExport, StretchThatNoTimelineHoldsIsNotShown) {
    ResultDirectory result;
    result.complete = true;
    result.started = "2026-11-21T18:31:55.000Z";
    result.ended = "2026-11-21T18:31:57.000Z";
    result.replays = {{result.ended, result.started}, {result.ended, result.ended}};
    result.clock = ClockPair{*WallNs(result.ended), INT64_MAX - 1};
    ExportRows(result, {}, [](PerfettoExporter&) {});
    EXPECT_EQ((std::vector<std::string>{"collection"}), EventNames(1));

    result.clock = ClockPair{*WallNs(result.started), INT64_MAX - 1};
    ExportRows(result, {}, [](PerfettoExporter&) {});
    EXPECT_TRUE(EventNames(1).empty()) << "its end is beyond";
}

TEST(WallNs, TimesBeyondTheTimelineAndOtherFormsHaveNone) {
    EXPECT_EQ(7000000u, WallNs("1970-01-01T00:00:00.007Z"));
    EXPECT_EQ(4294967295000000000u, WallNs("2106-02-07T06:28:15.000Z"));
    for (const char* text :
         {"2106-02-07T06:28:16.000Z", "1969-12-31T23:59:59.000Z", "1970-01-01T00:00:00.007+",
          "1970-01-01T00:00:00.-07Z", "1970-01-01T00:00:00.007", "1970-01-01", ""}) {
        EXPECT_EQ(std::nullopt, WallNs(text)) << text;
    }
}

TEST_F(PerfettoExport, SamplesOfEventsBeyondTheBoundAreLeftOut) {
    const std::vector<StackFrame> none;
    ExportRows({}, {}, [&](PerfettoExporter& exporter) {
        for (int event = 0; event < 70; ++event) {
            exporter.OnProfileSample({0, 1, 0, {}, 7, "c", "r" + std::to_string(event), 1, none});
        }
    });

    const auto& packets = trace_.packet();
    EXPECT_EQ(64, std::count_if(packets.begin(), packets.end(), [](const TracePacket& packet) {
                  return packet.has_perf_sample();
              }));
}

TEST_F(PerfettoExport, ProblemsBeyondAHundredAreLeftOut) {
    ReadOutcome outcome;
    outcome.problems.assign(103, "a file is gone");
    ExportRows({}, outcome, [](PerfettoExporter&) {});

    EXPECT_EQ(std::vector<std::string>(100, "INCOMPLETE: a file is gone"), EventNames(3));
}

TEST_F(PerfettoExport, SampleWithoutAStackOrACoreHasNone) {
    const std::vector<StackFrame> none;
    ExportRows({}, {}, [&](PerfettoExporter& exporter) {
        exporter.OnProfileSample({0, 1, std::nullopt, {}, 7, "c", "r11", 1, none});
    });

    const auto& packets = trace_.packet();
    const auto sample = std::find_if(packets.begin(), packets.end(),
                                     [](const auto& packet) { return packet.has_perf_sample(); });
    ASSERT_NE(packets.end(), sample);
    EXPECT_FALSE(sample->perf_sample().has_callstack_iid());
    EXPECT_TRUE(std::none_of(packets.begin(), packets.end(),
                             [](const auto& packet) { return packet.has_interned_data(); }));
    EXPECT_FALSE(sample->perf_sample().has_cpu());
}

TEST_F(PerfettoExport, ChannelWithoutTheRawClockIsNotOnTheTimeline) {
    const std::vector<std::string> events = {"LLC-loads"};
    ExportRows({}, {}, [&](PerfettoExporter& exporter) {
        exporter.OnChannel({0, 1, std::nullopt, "f", "n", ChannelSource::STATISTIC,
                            ChannelClock::SINCE_START, 0, events});
        exporter.OnChannelCount({1, 7, 0, ALL_CORES, 5, 7});
        exporter.OnChannelLoss({1, 8, 3});
    });

    for (const TracePacket& packet : trace_.packet()) {
        EXPECT_FALSE(packet.has_track_event() && packet.track_event().type() == COUNTER);
    }
}

TEST_F(PerfettoExport, LossesAreInstants) {
    const std::vector<std::string> events = {"page-faults"};
    ResultDirectory result;
    result.complete = true;
    ExportRows(result, {}, [&](PerfettoExporter& exporter) {
        exporter.OnChannel(
            {0, 1, 8, "f", "n", ChannelSource::PERF, ChannelClock::RAW_MONOTONIC, 20, events});
        exporter.OnChannelLoss({1, 8, 3});
    });

    EXPECT_EQ((std::vector<std::string>{"3 records lost"}), EventNames(3));
}

TEST_F(PerfettoExport, IncompleteResultSaysSo) {
    Export("complete");
    EXPECT_TRUE(EventNames(3).empty());
    EXPECT_EQ((std::vector<std::string>{"system CPU", "memory", "processes", "channels"}),
              EventNames(1));

    Export("incomplete");
    EXPECT_EQ((std::vector<std::string>{"memory (incomplete)"}), EventNames(1));
    ASSERT_EQ(3u, EventNames(3).size());
    EXPECT_EQ("INCOMPLETE: device 0: the data session ended before the device had sent everything",
              EventNames(3)[0]);
}

TEST_F(PerfettoExport, IsReadByToolsThatKnowNoSchema) {
    Export("complete");
    int status = -1;
    const std::string text =
        Output("gzip -dc '" + path_ + "' | protoc --decode_raw | head -n 3", status);

    EXPECT_EQ(0, status);
    EXPECT_EQ(0u, text.find("1 {")) << text;
}

TEST_F(PerfettoExport, ScratchFilesAreGone) {
    Export("complete");

    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(directory_.Path()), {}));
}

// Wants TIV_TRACE_PROCESSOR to name a trace_processor_shell.
TEST_F(PerfettoExport, TraceProcessorLosesNothing) {
    const char* processor = std::getenv("TIV_TRACE_PROCESSOR");
    if (processor == nullptr) {
        GTEST_SKIP() << "TIV_TRACE_PROCESSOR names no trace processor";
    }
    const std::string query = directory_.Write(
        "query.sql",
        "SELECT 'lost=' || (SELECT count(*) FROM stats WHERE value > 0 AND severity <> 'info') || "
        "' samples=' || (SELECT count(callsite_id) FROM perf_sample) || "
        "' cpu=' || (SELECT count(*) FROM counter c JOIN process_counter_track t ON "
        "c.track_id = t.id WHERE t.name = 'CPU') AS answer;");
    int status = -1;
    Export("profile");
    const std::string profile = Output(fmt::format("{} -q {} {}", processor, query, path_), status);
    Export("complete");
    const std::string complete =
        Output(fmt::format("{} -q {} {}", processor, query, path_), status);

    const size_t samples = CountRows(RowsOf(Golden("profile")), "sample");
    EXPECT_NE(std::string::npos, profile.find(fmt::format("lost=0 samples={} cpu=0", samples)))
        << profile;
    EXPECT_NE(std::string::npos,
              complete.find(fmt::format("lost=0 samples=0 cpu={}", Values("CPU").size())))
        << complete;
}
