// Child processes of the OS abstraction.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <string>

#include "platform/mm_api.h"

namespace {

constexpr int FIRST_FOREIGN_DESCRIPTOR = 3;
constexpr int KILLED_BASE = 128;
constexpr mode_t OUTPUT_MODE = 0640;

int32_t Report(int error) {
    if (error == 0) {
        return 0;
    }
    errno = error;
    return -1;
}

const char* PathEntryOf(char* const* envp) {
    static const char PREFIX[] = "PATH=";
    for (; envp != nullptr && *envp != nullptr; ++envp) {
        if (strncmp(*envp, PREFIX, sizeof(PREFIX) - 1) == 0) {
            return *envp + sizeof(PREFIX) - 1;
        }
    }
    return "";
}

bool IsProgram(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           access(path.c_str(), X_OK) == 0;
}

// The exec functions that search read the caller's PATH; the child's decides here. An empty part of
// the list doesn't stand for the working directory. Empty when no part has the program.
std::string LookUp(const char* cmd, char* const* envp) {
    if (strchr(cmd, '/') != nullptr) {
        return cmd;
    }
    const std::string list = PathEntryOf(envp);
    for (size_t begin = 0; begin < list.size();) {
        const size_t end = std::min(list.find(':', begin), list.size());
        std::string candidate = list.substr(begin, end - begin) + "/" + cmd;
        if (end > begin && IsProgram(candidate)) {
            return candidate;
        }
        begin = end + 1;
    }
    return {};
}

// What the child does to its descriptors before the program starts.
class Descriptors {
 public:
    Descriptors() : error_(posix_spawn_file_actions_init(&actions_)) { ready_ = error_ == 0; }
    ~Descriptors() {
        if (ready_) {
            posix_spawn_file_actions_destroy(&actions_);
        }
    }
    Descriptors(const Descriptors&) = delete;
    Descriptors& operator=(const Descriptors&) = delete;

    int Plan(const char* stdoutFile) {
        Open(STDIN_FILENO, "/dev/null", O_RDONLY);
        if (stdoutFile != nullptr) {
            Open(STDOUT_FILENO, stdoutFile, O_WRONLY | O_CREAT | O_TRUNC);
        }
        if (error_ == 0) {
            error_ = posix_spawn_file_actions_addclosefrom_np(&actions_, FIRST_FOREIGN_DESCRIPTOR);
        }
        return error_;
    }

    const posix_spawn_file_actions_t* Get() const { return &actions_; }

 private:
    void Open(int fd, const char* path, int flags) {
        if (error_ == 0) {
            error_ = posix_spawn_file_actions_addopen(&actions_, fd, path, flags, OUTPUT_MODE);
        }
    }

    posix_spawn_file_actions_t actions_;
    int error_;
    bool ready_ = false;
};

// What the child does to its signals: an ignored signal and a blocked one would survive the exec.
class Signals {
 public:
    Signals() : error_(posix_spawnattr_init(&attributes_)) { ready_ = error_ == 0; }
    ~Signals() {
        if (ready_) {
            posix_spawnattr_destroy(&attributes_);
        }
    }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    int Plan() {
        sigset_t none;
        sigset_t pipe;
        sigemptyset(&none);
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        if (error_ == 0) {
            error_ = posix_spawnattr_setsigmask(&attributes_, &none);
        }
        if (error_ == 0) {
            error_ = posix_spawnattr_setsigdefault(&attributes_, &pipe);
        }
        if (error_ == 0) {
            error_ = posix_spawnattr_setflags(&attributes_,
                                              POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        }
        return error_;
    }

    const posix_spawnattr_t* Get() const { return &attributes_; }

 private:
    posix_spawnattr_t attributes_;
    int error_;
    bool ready_ = false;
};

int Spawn(const std::string& program, const mmArgvEnv& args, const char* stdoutFile, pid_t* pid) {
    Descriptors descriptors;
    Signals signals;
    int error = descriptors.Plan(stdoutFile);
    if (error == 0) {
        error = signals.Plan();
    }
    if (error != 0) {
        return error;
    }
    char* noEnvironment[] = {nullptr};
    char** envp = args.envp == nullptr ? noEnvironment : args.envp;
    return posix_spawn(pid, program.c_str(), descriptors.Get(), signals.Get(), args.argv, envp);
}

}  // namespace

int32_t mmCreateProcess(const char* cmd, const struct mmArgvEnv* args, const char* stdoutFile,
                        mmProcess* pid) {
    if (cmd == nullptr || args == nullptr || args->argv == nullptr || pid == nullptr) {
        return Report(EINVAL);
    }
    try {
        const std::string program = LookUp(cmd, args->envp);
        return Report(program.empty() ? ENOENT : Spawn(program, *args, stdoutFile, pid));
    } catch (const std::exception&) {
        return Report(ENOMEM);
    }
}

int32_t mmWaitPid(mmProcess pid, int32_t* status, int32_t options) {
    if (status == nullptr) {
        return Report(EINVAL);
    }
    int raw = 0;
    pid_t ended = -1;
    do {
        ended = waitpid(pid, &raw, options == MM_WAIT_NO_HANG ? WNOHANG : 0);
    } while (ended < 0 && errno == EINTR);
    if (ended <= 0) {
        return ended < 0 ? -1 : 0;
    }
    *status = WIFSIGNALED(raw) ? KILLED_BASE + WTERMSIG(raw) : WEXITSTATUS(raw);
    return 1;
}
