// A tighter limit of the process on a resource.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

namespace tiv::test {

// While it lives, the process has no more than `limit` of a resource (RLIMIT_NOFILE and others). A
// write beyond the size of a file is an error of the call and no signal.
class ScopedLimit {
 public:
    ScopedLimit(__rlimit_resource_t resource, rlim_t limit)
        : resource_(resource), signal_(std::signal(SIGXFSZ, SIG_IGN)) {
        EXPECT_EQ(0, getrlimit(resource_, &before_));
        const rlimit tight{limit, before_.rlim_max};
        EXPECT_EQ(0, setrlimit(resource_, &tight));
    }
    ~ScopedLimit() {
        EXPECT_EQ(0, setrlimit(resource_, &before_));
        (void)std::signal(SIGXFSZ, signal_);
    }
    ScopedLimit(const ScopedLimit&) = delete;
    ScopedLimit& operator=(const ScopedLimit&) = delete;

 private:
    const __rlimit_resource_t resource_;
    void (*const signal_)(int);
    rlimit before_{};
};

}  // namespace tiv::test
