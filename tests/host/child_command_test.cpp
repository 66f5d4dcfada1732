// The command of a collection: how it starts, and how its end is told.
#include "host/child_command.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "host/refused_calls.h"
#include "support/scoped_limit.h"
#include "support/temp_dir.h"

namespace tiv::host {
namespace {

using test::RefusedCall;
using test::TempDir;

constexpr const char* ADVICE = "; check its name and PATH, and that it may be executed";

// The lowest descriptor that is free: with it as their number's limit none is left.
rlim_t OpenDescriptors() {
    const int next = dup(STDERR_FILENO);
    close(next);
    return static_cast<rlim_t>(next);
}

void WaitForTheEnd(ChildCommand& command) {
    while (command.Running()) {
        (void)poll(nullptr, 0, 1);
    }
}

}  // namespace

TEST(ChildCommand, WithoutAProcessForItTheReasonIsTold) {
    const RefusedCall full("fork", EAGAIN);
    ChildCommand command;

    EXPECT_EQ(std::string("cannot start true: Resource temporarily unavailable") + ADVICE,
              command.Start({"true"}));

    EXPECT_FALSE(command.Running());
}

// A sanitizer's first look at a type takes a descriptor.
void FailOnce() {
    ChildCommand command;
    EXPECT_NE("", command.Start({"/none"}));
    EXPECT_NE("", command.Start({"true"}, "/none/log"));
}

TEST(ChildCommand, WithoutADescriptorTheReasonIsTold) {
    FailOnce();
    ChildCommand command;
    const test::ScopedLimit none(RLIMIT_NOFILE, OpenDescriptors());

    EXPECT_EQ(std::string("cannot start true: Too many open files") + ADVICE,
              command.Start({"true"}));
}

TEST(ChildCommand, LogThatCannotBeMadeMeansThatNothingStarts) {
    const TempDir directory;
    const std::string mark = directory.Path("ran");
    const std::string log = directory.Path("none/command.log");
    ChildCommand command;

    EXPECT_EQ("cannot write " + log + ": No such file or directory",
              command.Start({"touch", mark}, log));

    EXPECT_FALSE(command.Running());
    EXPECT_NE(0, access(mark.c_str(), F_OK));
}

TEST(ChildCommand, LogWithoutADescriptorMeansThatNothingStarts) {
    const TempDir directory;
    FailOnce();
    ChildCommand command;
    const test::ScopedLimit none(RLIMIT_NOFILE, OpenDescriptors());

    EXPECT_EQ("cannot write " + directory.Path("log") + ": Too many open files",
              command.Start({"true"}, directory.Path("log")));
}

TEST(ChildCommand, StartThatASignalInterruptsStillTellsTheReason) {
    const RefusedCall interrupted("read", EINTR, 2);
    ChildCommand command;

    EXPECT_EQ(std::string("cannot start /none: No such file or directory") + ADVICE,
              command.Start({"/none"}));

    EXPECT_EQ(2, RefusedCall::Count());
}

TEST(ChildCommand, SignalThatEndsItIsTold) {
    ChildCommand command;
    ASSERT_EQ("", command.Start({"sleep", "1000"}));
    EXPECT_TRUE(command.Running());
    EXPECT_EQ("its end is not known", command.StatusText());

    command.Signal(SIGKILL);
    WaitForTheEnd(command);

    EXPECT_EQ(SIGKILL, command.EndSignal());
    EXPECT_EQ("ended by signal 9 (Killed)", command.StatusText());
}

TEST(ChildCommand, EndThatSomebodyElseTookIsNotMadeUp) {
    ChildCommand command;
    ASSERT_EQ("", command.Start({"true"}));
    ASSERT_LT(0, waitpid(-1, nullptr, 0));

    EXPECT_FALSE(command.Running());

    EXPECT_FALSE(command.ExitStatus().has_value());
    EXPECT_FALSE(command.EndSignal().has_value());
    EXPECT_EQ("its end is not known", command.StatusText());
}

}  // namespace tiv::host
