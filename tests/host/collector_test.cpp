// A collection beside others of the same moment.
#include "host/collector.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <new>
#include <string>

#include "common/utils.h"
#include "host/exit_codes.h"
#include "support/fake_mm.h"
#include "support/temp_dir.h"

namespace tiv::host {
namespace {

using analysis::rokt::common::utils::Utils;
namespace fs = std::filesystem;

class ViewWithoutMemory : public CollectionView {
 public:
    void Show(const Progress& /*progress*/) override {}
    void Clear() override {}
    std::unique_ptr<ChunkSink> Tap(int /*deviceId*/, ChunkSink& /*files*/) override {
        throw std::bad_alloc();
    }
};

}  // namespace

TEST(Collector, ResultOfAnotherRunIsNeitherTakenNorRemoved) {
    test::FakeMm::Instance().SetLocalTime({});
    const test::TempDir directory;
    const std::string name = Utils::CreateResultPath(0, fmt::format("{:0>8}", getpid()));
    (void)directory.MakeDir(name);
    directory.Write(name + "/manifest.json", "another run's");
    CollectOptions options;
    options.output = directory.Path();
    options.duration = std::chrono::seconds(0);
    Collector collector({}, options, true);
    testing::internal::CaptureStderr();

    EXPECT_EQ(EXIT_LOCAL_ERROR, collector.Run());

    EXPECT_EQ("tivctl: cannot create " + directory.Path(name) +
                  ": File exists; choose another directory with --output\n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ("", collector.ResultDirectory());
    EXPECT_EQ("another run's", directory.Read(name + "/manifest.json"));
}

TEST(Collector, MemoryThatRunsOutBeforeTheStartLeavesNothingBehind) {
    test::FakeMm::Instance().SetLocalTime({});
    const test::TempDir directory;
    CollectOptions options;
    options.output = directory.Path();
    JobPlan plan;
    plan.jobs.emplace_back();
    ViewWithoutMemory view;
    Collector collector(plan, options, true, &view);

    EXPECT_THROW((void)collector.Run(), std::bad_alloc);

    EXPECT_TRUE(fs::is_empty(directory.Path()));
    EXPECT_EQ("", collector.ResultDirectory());
}

}  // namespace tiv::host
