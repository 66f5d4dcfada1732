// Entry of the end-to-end test programs: moves into a private namespace before the first test.
#include "e2e/isolation.h"

#include <gtest/gtest.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace tiv::e2e {

namespace {

constexpr long TMPFS_MAGIC_NUMBER = 0x01021994;

bool OnTmpfs(const char* path) {
    struct statfs info {};
    return statfs(path, &info) == 0 && info.f_type == TMPFS_MAGIC_NUMBER;
}

// Returns only when it failed.
void EnterNamespace(char** argv) {
    char self[4096] = {0};
    if (readlink("/proc/self/exe", self, sizeof(self) - 1) < 0) {
        return;
    }
    std::vector<char*> words = {const_cast<char*>(TIV_ISOLATED_SCRIPT), self};
    for (char** word = argv + 1; *word != nullptr; ++word) {
        words.push_back(*word);
    }
    words.push_back(nullptr);
    execv(words[0], words.data());
}

}  // namespace

int RunIsolated(int argc, char** argv) {
    // GoogleTest takes its own words out of argv; the program inside needs them again.
    std::vector<char*> given(argv, argv + argc + 1);
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests) && !IsIsolated()) {
        EnterNamespace(given.data());
        std::perror("cannot enter a private namespace");
        return 1;
    }
    return RUN_ALL_TESTS();
}

bool IsIsolated() {
    return getenv("TIV_ISOLATED") != nullptr && OnTmpfs("/usr/local/profiler") &&
           OnTmpfs("/var/log/npu") && OnTmpfs("/run/tiv");
}

}  // namespace tiv::e2e

int main(int argc, char** argv) { return tiv::e2e::RunIsolated(argc, argv); }
