// Starting and watching of programs.
#include "e2e/child_process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

namespace tiv::e2e {

namespace {

constexpr std::chrono::milliseconds PAUSE{5};
constexpr std::chrono::seconds PATIENCE{5};

void Redirect(const std::string& path, int descriptor) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    dup2(fd, descriptor);
}

int StatusOf(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

std::string FileContent(const std::string& path) {
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    // A thread that ends between open and read fails the read, which this operator keeps to itself.
    content << file.rdbuf();
    return content.str();
}

bool PauseUntil(std::chrono::steady_clock::time_point deadline) {
    std::this_thread::sleep_for(PAUSE);
    return std::chrono::steady_clock::now() < deadline;
}

ChildProcess::ChildProcess(const std::string& directory, const std::string& name,
                           std::vector<std::string> words, const Environment& environment)
    : outputPath_(directory + "/" + name + ".out"), errorPath_(directory + "/" + name + ".err") {
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        (void)prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that is killed leaves nothing behind
        for (const auto& [key, value] : environment) {
            setenv(key.c_str(), value.c_str(), 1);
        }
        Redirect(outputPath_, STDOUT_FILENO);
        Redirect(errorPath_, STDERR_FILENO);
        execv(argv[0], argv.data());
        _exit(126);
    }
}

// Ends the program like SIGKILL, but one that counts its coverage keeps the counters.
ChildProcess::~ChildProcess() {
    Signal(SIGPROF);
    Continue();
    (void)Wait(PATIENCE);
    Kill();
}

void ChildProcess::Signal(int signal) const {
    if (!status_.has_value()) {
        kill(pid_, signal);
    }
}

void ChildProcess::Pause() const {
    Signal(SIGSTOP);
    int status = 0;
    (void)waitpid(pid_, &status, WUNTRACED);
}

void ChildProcess::Continue() const { Signal(SIGCONT); }

void ChildProcess::Kill() {
    Signal(SIGKILL);
    (void)Wait();
}

std::optional<int> ChildProcess::Wait(std::chrono::milliseconds limit) {
    (void)Eventually(
        [this] {
            int status = 0;
            if (!status_.has_value() && waitpid(pid_, &status, WNOHANG) == pid_) {
                status_ = StatusOf(status);
            }
            return status_.has_value();
        },
        limit);
    return status_;
}

uint64_t ChildProcess::BytesRead() const {
    std::istringstream fields(FileContent("/proc/" + std::to_string(pid_) + "/io"));
    std::string name;
    uint64_t value = 0;
    fields >> name >> value;
    return value;
}

bool ChildProcess::WaitForReads(uint64_t bytes) const {
    const uint64_t before = BytesRead();
    return Eventually([&] { return BytesRead() >= before + bytes; });
}

std::string ChildProcess::Output() const { return FileContent(outputPath_); }

std::string ChildProcess::Errors() const { return FileContent(errorPath_); }

bool ChildProcess::WaitForError(const std::string& text, std::chrono::milliseconds limit) const {
    return Eventually([&] { return Errors().find(text) != std::string::npos; }, limit);
}

}  // namespace tiv::e2e
