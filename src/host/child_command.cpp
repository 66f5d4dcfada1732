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
constexpr mode_t LOG_MODE = 0644;

// The streams of a command that has no terminal; -1 where it keeps tivctl's.
struct CommandStreams {
    int input = -1;
    int output = -1;
};

CommandStreams OpenStreams(const std::string& log) {
    CommandStreams streams;
    if (!log.empty()) {
        streams.input = open("/dev/null", O_RDONLY | O_CLOEXEC);
        streams.output = open(log.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, LOG_MODE);
    }
    return streams;
}

void CloseStreams(const CommandStreams& streams) {
    for (const int fd : {streams.input, streams.output}) {
        if (fd >= 0) {
            (void)close(fd);
        }
    }
}

void LeaveTerminal(const CommandStreams& streams) {
    if (streams.output >= 0) {
        (void)setpgid(0, 0);
        (void)dup2(streams.input, STDIN_FILENO);
        (void)dup2(streams.output, STDOUT_FILENO);
        (void)dup2(streams.output, STDERR_FILENO);
    }
}

// In the new process: only what is safe between fork and exec. What tivctl ignores itself the
// command gets with its default.
[[noreturn]] void Become(char* const* words, int report, const CommandStreams& streams) {
    (void)signal(SIGPIPE, SIG_DFL);
    LeaveTerminal(streams);
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

// Returns when the program runs, with 0 and its process id, or with the reason why it does not.
int Launch(char* const* words, const CommandStreams& streams, pid_t& pid) {
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) {
        return errno;
    }
    (void)signal(SIGCHLD, SIG_DFL);  // whoever ignores it, as a shell may, learns no exit status
    pid = fork();
    if (pid == 0) {
        Become(words, report[1], streams);
    }
    int reason = pid < 0 ? errno : 0;
    (void)close(report[1]);
    reason = reason == 0 ? ReadReason(report[0]) : reason;
    (void)close(report[0]);
    if (reason != 0 && pid > 0) {
        (void)waitpid(pid, nullptr, 0);
        pid = -1;
    }
    return reason;
}

std::string NotStarted(const std::string& name, int reason) {
    return fmt::format("cannot start {}: {}; check its name and PATH, and that it may be executed",
                       name, std::strerror(reason));
}

}  // namespace

std::string ChildCommand::Start(const std::vector<std::string>& words, const std::string& log) {
    std::vector<std::string> copies = words;
    std::vector<char*> arguments;
    arguments.reserve(copies.size() + 1);
    for (std::string& word : copies) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const CommandStreams streams = OpenStreams(log);
    if (!log.empty() && (streams.input < 0 || streams.output < 0)) {
        const int reason = errno;
        CloseStreams(streams);
        return fmt::format("cannot write {}: {}", log, std::strerror(reason));
    }
    hasOwnGroup_ = !log.empty();
    const int reason = Launch(arguments.data(), streams, pid_);
    CloseStreams(streams);
    return reason == 0 ? "" : NotStarted(words.front(), reason);
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
        (void)kill(hasOwnGroup_ ? -pid_ : pid_, signal);
    }
}

std::string ChildCommand::StatusText() const {
    if (exitStatus_.has_value()) {
        return fmt::format("exit status {}", *exitStatus_);
    }
    if (endSignal_.has_value()) {
        return fmt::format("ended by signal {} ({})", *endSignal_, strsignal(*endSignal_));
    }
    return "its end is not known";
}

}  // namespace tiv::host
