// Writing of received chunks below one directory.
#include "host/result_files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/scoped_limit.h"
#include "support/temp_dir.h"

using namespace tiv::host;
namespace fs = std::filesystem;

namespace {

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

class ResultDirectory : public testing::Test {
 protected:
    void SetUp() override {
        fs::create_directory(directory_ + "/result");
        files_ = std::make_unique<ResultFiles>(directory_ + "/result");
    }

    bool Put(const std::string& name, const std::string& data) {
        return files_->OnChunk({name, 3, data});
    }
    std::string Of(const std::string& name) { return Content(directory_ + "/result/" + name); }

    tiv::test::TempDir tempDir_;
    const std::string directory_ = tempDir_.Path();
    std::unique_ptr<ResultFiles> files_;
};

}  // namespace

TEST(SafeFileName, OrdinaryRelativePathsAreSafe) {
    EXPECT_TRUE(IsSafeFileName("data/llc.data"));
    EXPECT_TRUE(IsSafeFileName("a"));
    EXPECT_TRUE(IsSafeFileName("a/b/c..d/...x"));
    EXPECT_TRUE(IsSafeFileName(std::string(255, 'n')));
}

TEST(SafeFileName, WhateverCouldLeaveTheDirectoryIsNot) {
    for (const std::string& name :
         {std::string(), std::string("/etc/passwd"), std::string("../x"), std::string("a/../../x"),
          std::string("a//b"), std::string("a/"), std::string("."), std::string("a/."),
          std::string("a\0b", 3), std::string(256, 'n')}) {
        EXPECT_FALSE(IsSafeFileName(name)) << name;
    }
}

TEST_F(ResultDirectory, ChunksAreAppendedInOrder) {
    EXPECT_TRUE(Put("data/a", "one "));
    EXPECT_TRUE(Put("data/b", "other"));
    EXPECT_TRUE(Put("data/a", "two"));

    EXPECT_EQ(Of("data/a"), "one two");
    EXPECT_EQ(Of("data/b"), "other");
    const auto summaries = files_->Summaries();
    EXPECT_EQ(summaries.at("data/a").bytes, 7u);
    EXPECT_EQ(summaries.at("data/a").chunks, 2u);
    EXPECT_EQ(summaries.at("data/a").dataModule, 3);
    EXPECT_EQ(files_->FileCount(), 2u);
}

TEST_F(ResultDirectory, NamesThatLeaveTheDirectoryAreRefusedAndCounted) {
    EXPECT_TRUE(Put("../escape", "x"));
    EXPECT_TRUE(Put("../escape", "x"));

    EXPECT_FALSE(fs::exists(directory_ + "/escape"));
    EXPECT_EQ(files_->RefusedNames().at("../escape"), 2u);
    EXPECT_TRUE(files_->Summaries().empty());
}

TEST_F(ResultDirectory, RefusedNamesBeyondAHundredAreCountedTogether) {
    for (int i = 0; i < 103; ++i) {
        EXPECT_TRUE(Put("../" + std::to_string(i), "x"));
    }
    EXPECT_TRUE(Put("../7", "x"));

    const auto refused = files_->RefusedNames();
    EXPECT_EQ(101u, refused.size());
    EXPECT_EQ(3u, refused.at("(more names)"));
    EXPECT_EQ(2u, refused.at("../7"));
}

TEST_F(ResultDirectory, LinksAreNotFollowed) {
    fs::create_directory(directory_ + "/outside");
    fs::create_directory_symlink(directory_ + "/outside", directory_ + "/result/link");
    fs::create_symlink(directory_ + "/outside/file", directory_ + "/result/file");

    EXPECT_TRUE(Put("link/x", "x"));
    EXPECT_TRUE(Put("file", "x"));

    EXPECT_TRUE(fs::is_empty(directory_ + "/outside"));
    EXPECT_EQ(files_->RefusedNames().size(), 2u);
}

TEST_F(ResultDirectory, OneNameAsFileAndDirectoryIsTheDevicesFault) {
    EXPECT_TRUE(Put("a", "x"));
    EXPECT_TRUE(Put("a/b", "x"));
    EXPECT_TRUE(Put("d/b", "x"));
    EXPECT_TRUE(Put("d", "x"));

    EXPECT_EQ(files_->RefusedNames().size(), 2u);
    EXPECT_EQ(files_->Error(), "");
}

TEST_F(ResultDirectory, MoreFilesThanDescriptorsWork) {
    const tiv::test::ScopedLimit few(RLIMIT_NOFILE, 200);

    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 400; ++i) {
            ASSERT_TRUE(Put("data/" + std::to_string(i), std::to_string(round)));
        }
    }

    EXPECT_EQ(Of("data/0"), "01");
    EXPECT_EQ(Of("data/399"), "01");
}

TEST_F(ResultDirectory, ShortageOfDescriptorsClosesOwnFilesFirst) {
    const tiv::test::ScopedLimit few(RLIMIT_NOFILE, 40);

    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(Put("data/" + std::to_string(i), "x")) << files_->Error();
    }
    ASSERT_TRUE(Put("data/0", "y"));

    EXPECT_TRUE(files_->OnFinish());
    EXPECT_EQ(Of("data/0"), "xy");
}

TEST_F(ResultDirectory, ErrorAtTheCloseIsAFailure) {
    const int next = dup(STDIN_FILENO);  // the lowest free number, which the file gets
    close(next);
    ASSERT_TRUE(Put("a", "x"));
    const int directory = open(directory_.c_str(), O_RDONLY | O_CLOEXEC);
    const int fileFd = directory == next ? next + 1 : next;
    close(directory);
    ASSERT_EQ(close(fileFd), 0);

    EXPECT_FALSE(files_->OnFinish());

    EXPECT_NE(files_->Error().find("/result/a: Bad file descriptor"), std::string::npos);
}

TEST_F(ResultDirectory, FinishClosesEveryFile) {
    ASSERT_TRUE(Put("a", "x"));
    ASSERT_TRUE(files_->OnFinish());

    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        EXPECT_NE(fs::read_symlink(entry.path(), ignored), directory_ + "/result/a");
    }
}

TEST_F(ResultDirectory, DirectoryThatIsGoneEndsTheSession) {
    fs::remove_all(directory_ + "/result");

    EXPECT_FALSE(Put("data/a", "x"));

    EXPECT_NE(files_->Error().find("No such file or directory"), std::string::npos);
}

TEST_F(ResultDirectory, FullDiskEndsTheSession) {
    const tiv::test::ScopedLimit small(RLIMIT_FSIZE, 4);

    EXPECT_FALSE(Put("data/a", "more than four bytes"));

    EXPECT_NE(files_->Error().find("File too large"), std::string::npos);
}

TEST_F(ResultDirectory, FirstErrorIsTheOneThatIsTold) {
    {
        const tiv::test::ScopedLimit small(RLIMIT_FSIZE, 4);
        EXPECT_FALSE(Put("data/a", "more than four bytes"));
    }
    fs::remove_all(directory_ + "/result");
    EXPECT_FALSE(Put("data/b", "x"));

    EXPECT_NE(files_->Error().find("/result/data/a: File too large"), std::string::npos);
}

TEST(Printable, ControlAndHighBytesAreEscaped) {
    EXPECT_EQ(Printable("plain"), "plain");
    EXPECT_EQ(Printable("a\nb\xff"), "a\\x0ab\\xff");
}
