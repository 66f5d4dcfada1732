// Start and end of the command.
#include "host/child_command.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace tiv::host {

namespace {

constexpr int NOT_STARTED = 127;

// In the new process: only what is safe between fork and exec. What tivctl ignores itself the
// command gets with its default.
[[noreturn]] void Become(char* const* words, int report) {
    (void)signal(SIGPIPE, SIG_DFL);
    (void)execvp(words[0], words);
    const int reason = errno;
    const ssize_t written = write(report, &reason, sizeof(reason));
    (void)written;
    _exit(NOT_STARTED);
}

// The reason that the new process writes when it cannot become the program; 0 when it has.
int ReadReason(int report) {
    int reason = 0;
    ssize_t bytes = 0;
    do {
        bytes = read(report, &reason, sizeof(reason));
    } while (bytes < 0 && errno == EINTR);
    return bytes == sizeof(reason) ? reason : 0;
}

std::string NotStarted(const std::string& name, int reason) {
    return fmt::format("cannot start {}: {}; check its name and PATH, and that it may be executed",
                       name, std::strerror(reason));
}

}  // namespace

std::string ChildCommand::Start(const std::vector<std::string>& words) {
    std::vector<std::string> copies = words;
    std::vector<char*> arguments;
    arguments.reserve(copies.size() + 1);
    for (std::string& word : copies) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) {
        return NotStarted(words.front(), errno);
    }
    pid_ = fork();
    if (pid_ == 0) {
        Become(arguments.data(), report[1]);
    }
    int reason = pid_ < 0 ? errno : 0;
    (void)close(report[1]);
    reason = reason == 0 ? ReadReason(report[0]) : reason;
    (void)close(report[0]);
    if (reason == 0) {
        return "";
    }
    if (pid_ > 0) {
        (void)waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
    return NotStarted(words.front(), reason);
}

bool ChildCommand::Running() {
    if (pid_ < 0) {
        return false;
    }
    int status = 0;
    const pid_t ended = waitpid(pid_, &status, WNOHANG);
    if (ended == 0) {
        return true;
    }
    if (ended == pid_ && WIFSIGNALED(status)) {
        endSignal_ = WTERMSIG(status);
    } else if (ended == pid_) {
        exitStatus_ = WEXITSTATUS(status);
    }
    pid_ = -1;
    return false;
}

void ChildCommand::Signal(int signal) const {
    if (pid_ > 0) {
        (void)kill(pid_, signal);
    }
}

std::string ChildCommand::StatusText() const {
    if (exitStatus_.has_value()) {
        return fmt::format("exit status {}", *exitStatus_);
    }
    if (endSignal_.has_value()) {
        return fmt::format("ended by signal {} ({})", *endSignal_, strsignal(*endSignal_));
    }
    return "still running";
}

}  // namespace tiv::host
