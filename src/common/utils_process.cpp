// Child processes and the environment.
#include <cstdlib>
#include <new>

#include "common/utils.h"
#include "platform/log.h"

namespace analysis::rokt::common::utils {

namespace {

constexpr size_t MAX_ARGUMENTS = 1048576;

// The pointer arrays of a child, each ending in null. The pointers borrow the caller's strings,
// which the start of a child only reads.
class ArgumentBlock {
 public:
    // False when memory is short.
    bool Fill(const std::string& program, const std::vector<std::string>& argv,
              const std::vector<std::string>& envp) {
        try {
            arguments_.reserve(argv.size() + 2);
            arguments_.push_back(const_cast<char*>(program.c_str()));
            Append(argv, arguments_);
            environment_.reserve(envp.size() + 1);
            Append(envp, environment_);
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }

    mmArgvEnv Get() {
        mmArgvEnv block;
        block.argv = arguments_.data();
        block.argvCount = static_cast<int32_t>(arguments_.size() - 1);
        block.envp = environment_.data();
        block.envpCount = static_cast<int32_t>(environment_.size() - 1);
        return block;
    }

 private:
    static void Append(const std::vector<std::string>& words, std::vector<char*>& out) {
        for (const auto& word : words) {
            out.push_back(const_cast<char*>(word.c_str()));
        }
        out.push_back(nullptr);
    }

    std::vector<char*> arguments_;
    std::vector<char*> environment_;
};

bool StartProcess(const ExecCmdParam& param, const mmArgvEnv& block, mmProcess& pid) {
    const char* const file =
        param.stdoutRedirectFile.empty() ? nullptr : param.stdoutRedirectFile.c_str();
    return mmCreateProcess(param.cmd.c_str(), &block, file, &pid) == 0;
}

int RunToEnd(const ExecCmdParam& param, const mmArgvEnv& block, int& exitCode) {
    if (param.cmd.empty() || exitCode == -1) {
        return -1;
    }
    const std::string dir = Utils::DirName(param.cmd);
    if (Utils::ChangeWorkDir(dir) != 0) {
        TIV_LOGW("chdir(%s) failed.", Utils::BaseName(dir).c_str());
    }
    mmProcess pid = 0;
    if (!StartProcess(param, block, pid)) {
        return -1;
    }
    int32_t status = 0;
    if (mmWaitPid(pid, &status, MM_WAIT_BLOCK) != 1) {
        return -1;
    }
    exitCode = status;
    return 0;
}

int RunAside(const ExecCmdParam& param, const mmArgvEnv& block, mmProcess& pid) {
    return !param.cmd.empty() && StartProcess(param, block, pid) ? 0 : -1;
}

}  // namespace

int Utils::ExecCmd(const ExecCmdParam& param, const std::vector<std::string>& argv,
                   const std::vector<std::string>& envp, int& exitCode, mmProcess& pid) {
    if (argv.size() > MAX_ARGUMENTS || envp.size() > MAX_ARGUMENTS) {
        TIV_LOGE("invalid argv or envp size");
        return -1;
    }
    TIV_LOGI("Execute cmd:\"%s %s\", stdoutRedirectFile=%s", BaseName(param.cmd).c_str(),
             BaseName(Join(argv, " ")).c_str(), BaseName(param.stdoutRedirectFile).c_str());
    ArgumentBlock arguments;
    if (!arguments.Fill(param.cmd, argv, envp)) {
        TIV_LOGE("Pointer is null");
        return -1;
    }
    const mmArgvEnv block = arguments.Get();
    return param.async ? RunAside(param, block, pid) : RunToEnd(param, block, exitCode);
}

int Utils::WaitProcess(mmProcess pid, bool& isExited, int& exitCode, bool hang) {
    isExited = false;
    int32_t status = 0;
    const int32_t result = mmWaitPid(pid, &status, hang ? MM_WAIT_BLOCK : MM_WAIT_NO_HANG);
    if (result == 1) {
        isExited = true;
        exitCode = status;
        return 0;
    }
    return !hang && result == 0 ? 0 : -1;
}

int Utils::ChangeWorkDir(const std::string& path) { return mmChdir(path.c_str()) == 0 ? 0 : -1; }

std::string Utils::GetEnvString(const std::string& name) {
    const char* const value = std::getenv(name.c_str());
    return value == nullptr ? "" : value;
}

bool Utils::IsDynProfMode() { return GetEnvString("PROFILING_MODE") == "dynamic"; }

}  // namespace analysis::rokt::common::utils
