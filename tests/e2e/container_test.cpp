// Callers in another PID namespace than the daemon's.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include "e2e/daemon_test.h"
#include "e2e/host_messages.h"
#include "e2e/raw_session.h"

namespace tiv::e2e {

namespace {

class Container : public DaemonTest {
 protected:
    // What the first packet of `session` brings in answer to a control handshake.
    void WriteReplyTo(const std::string& file) {
        RawSession session(SocketPath(0));
        session.Send(ControlHandshake("job"));
        const std::string value = session.ReceiveValue().value_or("none");
        directory_.Write(file, value + (session.WaitForClose() ? "|closed" : "|open"));
    }

    // Runs `WriteReplyTo` as the first process of a PID namespace. The exit status.
    int AskFromAnotherNamespace(const std::string& file) {
        const pid_t child = fork();
        if (child == 0) {
            if (unshare(CLONE_NEWPID) != 0) {
                _exit(1);
            }
            const pid_t inside = fork();
            if (inside == 0) {
                WriteReplyTo(file);
                _exit(0);
            }
            int status = 1;
            waitpid(inside, &status, 0);
            _exit(status == 0 ? 0 : 1);
        }
        int status = 1;
        waitpid(child, &status, 0);
        return status;
    }
};

}  // namespace

TEST_F(Container, CallerGetsTheBareTextAndTheSessionCloses) {
    StartDaemon();

    ASSERT_EQ(AskFromAnotherNamespace("reply"), 0);

    EXPECT_EQ(directory_.Read("reply"), "MESSAGE_CONTAINER_NO_SUPPORT|closed");
    EXPECT_TRUE(daemon_->WaitForError("Prohibit container operate profiling, vfId=1."));
}

TEST_F(Container, TivctlSaysWhyItIsRefused) {
    StartDaemon();

    ChildProcess tivctl(directory_.Path(), "tivctl",
                        {"/usr/bin/unshare", "--pid", "--fork", TIVCTL_PROGRAM, "collect",
                         "--duration", "100ms", "--output", directory_.MakeDir("results")});

    EXPECT_EQ(tivctl.Wait(), 3);
    EXPECT_NE(tivctl.Errors().find("the device does not serve callers in a container"),
              std::string::npos)
        << tivctl.Errors();
}

TEST_F(Container, CallerInTheDaemonsNamespaceIsServedBesides) {
    StartDaemon();
    ASSERT_EQ(AskFromAnotherNamespace("reply"), 0);

    RawSession session(SocketPath(0));
    session.Send(ControlHandshake("job"));

    EXPECT_EQ(session.ReceiveAnswer().status, ACCEPTED);
}

}  // namespace tiv::e2e
