// What the tests of the program tivctl share: the running program, and a daemon played by the test.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/session_bytes.h"
#include "support/scoped_limit.h"
#include "support/temp_dir.h"

namespace tiv::test {

// A connected end of the link, spoken message by message. Reads wait half a minute at most.
class ScriptedSession {
 public:
    explicit ScriptedSession(int fd) : fd_(fd) {
        const timeval limit{30, 0};
        (void)setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    }
    ~ScriptedSession() { close(fd_); }
    ScriptedSession(const ScriptedSession&) = delete;
    ScriptedSession& operator=(const ScriptedSession&) = delete;

    // The type of the request that comes; empty when the far end closed instead.
    std::string Read() {
        uint32_t length = 0;
        if (recv(fd_, &length, sizeof(length), MSG_WAITALL) != sizeof(length)) {
            return "";
        }
        std::string bytes(length, '\0');
        if (recv(fd_, bytes.data(), length, MSG_WAITALL) != static_cast<ssize_t>(length)) {
            return "";
        }
        return SentMessage(bytes)->GetTypeName();
    }
    // Whether the far end has closed, or does within half a minute.
    [[nodiscard]] bool IsClosed() {
        char byte = 0;
        return recv(fd_, &byte, 1, 0) == 0;
    }
    void Send(const std::string& message) {
        const auto length = static_cast<uint32_t>(message.size());
        (void)send(fd_, &length, sizeof(length), MSG_NOSIGNAL);
        (void)send(fd_, message.data(), message.size(), MSG_NOSIGNAL);
    }
    std::string ReadAndAnswer(int status = 0, const std::string& info = "") {
        const std::string type = Read();
        Send(AnswerMessage(status, info));
        return type;
    }

 private:
    const int fd_;
};

// Runs tivctl. Standard output and error go to files, or the error to a descriptor of the test's.
class TivctlRun {
 public:
    TivctlRun(const TempDir& directory, std::vector<std::string> words, int errors = -1)
        : directory_(directory) {
        words.insert(words.begin(), TIVCTL_PROGRAM);
        std::vector<char*> argv;
        for (std::string& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        const std::string out = directory.Write("out", "");
        const std::string err = directory.Write("err", "");
        pid_ = fork();
        if (pid_ == 0) {
            (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
            (void)freopen(out.c_str(), "w", stdout);
            (void)freopen(err.c_str(), "w", stderr);
            if (errors >= 0) {
                (void)dup2(errors, STDERR_FILENO);
            }
            (void)execv(argv[0], argv.data());
            _exit(126);
        }
    }
    ~TivctlRun() {
        if (pid_ > 0) {
            (void)kill(pid_, SIGKILL);
            (void)Wait();
        }
    }
    TivctlRun(const TivctlRun&) = delete;
    TivctlRun& operator=(const TivctlRun&) = delete;

    void Interrupt() const { (void)kill(pid_, SIGINT); }

    // The exit code; 128 + n for a program that signal n ended.
    int Wait() {
        int status = 0;
        (void)waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }
    std::string Output() const { return directory_.Read("out"); }
    std::string Errors() const { return directory_.Read("err"); }

    // Waits for what the driver does when it has found no daemon, or for a text on standard error.
    [[nodiscard]] bool WaitForError(const std::string& text) const {
        for (int i = 0; i < 6000 && Errors().find(text) == std::string::npos; ++i) {
            (void)poll(nullptr, 0, 5);
        }
        return Errors().find(text) != std::string::npos;
    }
    // Waits until the program handles SIGINT itself.
    [[nodiscard]] bool WaitForHandler() const {
        for (int i = 0; i < 6000 && !CatchesInterrupt(); ++i) {
            (void)poll(nullptr, 0, 5);
        }
        return CatchesInterrupt();
    }

 private:
    bool CatchesInterrupt() const {
        std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
        std::string line;
        while (std::getline(status, line)) {
            if (line.rfind("SigCgt:", 0) == 0) {
                return (std::stoull(line.substr(7), nullptr, 16) & (1ULL << (SIGINT - 1))) != 0;
            }
        }
        return false;
    }

    const TempDir& directory_;
    pid_t pid_ = -1;
};

// While it lives, programs that are started have no room for a thread: its stack would take more
// than there is.
class HugeStacks {
#if defined(__has_feature)
    static constexpr bool THREAD_SANITIZER = __has_feature(thread_sanitizer);
#else
    static constexpr bool THREAD_SANITIZER = false;
#endif
    // The thread sanitizer keeps most addresses for itself.
    static constexpr rlim_t BYTES = THREAD_SANITIZER ? 1ULL << 38 : 1ULL << 47;

    const ScopedLimit limit_{RLIMIT_STACK, BYTES};
};

// A runtime directory, an output directory, and the sockets of devices.
class TivctlTest : public testing::Test {
 protected:
    TivctlTest() {
        setenv("TIV_RUNTIME_DIR", directory_.MakeDir("run").c_str(), 1);
        setenv("TERM", "xterm", 1);
        unsetenv("TIV_DRIVER_CONFIG");
        output_ = directory_.MakeDir("results");
    }
    ~TivctlTest() override {
        if (listener_ >= 0) {
            close(listener_);
        }
    }

    void Listen(int device) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = directory_.Path("run/hdc_" + std::to_string(device) + "_4.sock");
        memcpy(address.sun_path, path.c_str(), path.size() + 1);
        listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(0, bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
        ASSERT_EQ(0, listen(listener_, 8));
    }
    std::unique_ptr<ScriptedSession> Accept() {
        pollfd entry{listener_, POLLIN, 0};
        EXPECT_EQ(1, poll(&entry, 1, 30000)) << "tivctl does not connect";
        return std::make_unique<ScriptedSession>(
            accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
    }
    // `words` behind "collect --output <the output directory>".
    void Collect(const std::vector<std::string>& words, int errors = -1) {
        std::vector<std::string> all = {"collect", "--output", output_};
        all.insert(all.end(), words.begin(), words.end());
        tivctl_ = std::make_unique<TivctlRun>(directory_, all, errors);
    }
    // Answers both handshakes and both starts.
    void Begin() {
        control_ = Accept();
        EXPECT_EQ("analysis.rokt.proto.CtrlChannelHandshake", control_->ReadAndAnswer());
        data_ = Accept();
        EXPECT_EQ("analysis.rokt.proto.DataChannelHandshake", data_->ReadAndAnswer());
        EXPECT_EQ("analysis.rokt.proto.JobStartReq", control_->ReadAndAnswer());
        EXPECT_EQ("analysis.rokt.proto.ReplayStartReq", control_->ReadAndAnswer());
    }
    // Answers both stops and ends the data session.
    void End() {
        EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
        EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->Read());
        data_->Send(FinishMessage());
        control_->Send(AnswerMessage(0));
    }

    std::string Result() const {
        for (const auto& entry : std::filesystem::directory_iterator(output_)) {
            return entry.path().string();
        }
        return "";
    }
    nlohmann::json Manifest() const {
        std::ifstream file(Result() + "/manifest.json");
        return nlohmann::json::parse(file);
    }

    TempDir directory_;
    std::string output_;
    int listener_ = -1;
    std::unique_ptr<TivctlRun> tivctl_;
    std::unique_ptr<ScriptedSession> control_;
    std::unique_ptr<ScriptedSession> data_;
};

}  // namespace tiv::test
