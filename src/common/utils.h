// The shared helpers of the profiling side: paths, processes, text, time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/mm_api.h"

namespace analysis::rokt::common::utils {

// Longest path that the system's calls take, with its terminating zero.
constexpr size_t MAX_PATH_LENGTH = 4096;

// What program to run. An empty file name leaves standard output where the daemon's is.
struct ExecCmdParam {
    std::string
        cmd;  // path of the program, or a name that the PATH of the child's environment finds
    bool async = false;
    std::string stdoutRedirectFile;
};

// Static helpers without state, safe from any thread. Failures are told by the result and a log
// line. Paths in messages are cut to their base name, so that a log shows no directory structure.
class Utils {
 public:
    // Paths and files.

    static bool IsDir(const std::string& path);
    // A directory that the daemon may write to.
    static bool IsDirAccessible(const std::string& path);
    static bool IsFileExist(const std::string& path);
    // A path that cannot be examined counts as a link.
    static bool IsSoftLink(const std::string& path);
    // 0 or -1. A trailing slash belongs to neither half.
    static int SplitPath(const std::string& path, std::string& dir, std::string& base);
    // Makes the directory and its parents, each with mode 0750 whatever the umask. 0 also when the
    // path exists, whatever it is; a path of 4096 bytes or more gives -1.
    static int CreateDir(const std::string& path);
    // Removes the tree (removeSelf) or only what is in it. Follows no link.
    static void RemoveDir(const std::string& path, bool removeSelf);
    // The path without links and dots; empty when it does not exist.
    static std::string CanonicalizePath(const std::string& path);
    static std::string BaseName(const std::string& path);
    static std::string DirName(const std::string& path);
    static std::string AppendSlash(const std::string& path);
    static std::string JoinPath(const std::string& dir, const std::string& name);
    // What follows the first `dir` in `path`, without leading slashes and backslashes. -1 when
    // `dir` is not in it, and `out` keeps what it held.
    static int RelativePath(const std::string& path, const std::string& dir, std::string& out);
    // Full paths of the entries that are no directories, or that are; sub-directories are not read.
    static std::vector<std::string> GetFiles(const std::string& dir);
    static std::vector<std::string> GetChildDirs(const std::string& dir);
    // Bytes, or -1. Files of /proc have 0.
    static int64_t GetFileSize(const std::string& path);
    // Appends to a record file that other processes write as well. 0 or -1.
    static int WriteFile(const std::string& path, const std::string& data);
    // The daemon's own program file; empty when /proc does not tell.
    static std::string GetSelfPath();

    // Processes and the environment.

    // Runs a program; `argv` holds its arguments without its own name, `envp` its whole
    // environment. Asynchronous: gives the child's `pid`. Synchronous: changes the daemon's working
    // directory to the program's, waits for the child and gives its `exitCode`; an exitCode of -1
    // on entry is refused. 0 or -1.
    static int ExecCmd(const ExecCmdParam& param, const std::vector<std::string>& argv,
                       const std::vector<std::string>& envp, int& exitCode, mmProcess& pid);
    // Asks (or, with `hang`, waits) for the end of a child. 0 when it ended (isExited, exitCode) or
    // still runs; -1 when it cannot be waited for.
    static int WaitProcess(mmProcess pid, bool& isExited, int& exitCode, bool hang);
    static int ChangeWorkDir(const std::string& path);
    // Empty when the variable is not set.
    static std::string GetEnvString(const std::string& name);
    static bool IsDynProfMode();

    // Text.

    // Decimal digits, at most 2147483647.
    static bool CheckStringIsNonNegativeIntNum(const std::string& text);
    // Characters that a path from outside may have; blanks, quotes and tildes are not among them.
    static bool CheckPathChars(const std::string& path);
    // Empty parts between two separators are kept; empty text has no part and a separator at the
    // end adds none.
    static std::vector<std::string> Split(const std::string& text, char separator);
    static std::string Join(const std::vector<std::string>& parts, const std::string& separator);
    static std::string TrimLeft(const std::string& text, const std::string& chars);
    static std::string TrimRight(const std::string& text, const std::string& chars);
    static std::string Trim(const std::string& text, const std::string& chars);
    static std::string ToUpper(const std::string& text);
    static std::string ToLower(const std::string& text);
    // Drops one `ch` from the end, when there is one.
    static std::string RemoveEndCharacter(const std::string& text, char ch);
    // Zeros in front up to `width`; longer text is an error and comes back as it is.
    static std::string LeftPad(const std::string& text, size_t width);
    // CRC-32C without the final inversion; null gives all ones.
    static uint32_t Hash32(const void* data, size_t length);

    // Time, and names made from it.

    // Nanoseconds of the raw monotonic clock.
    static uint64_t GetClockMonotonicRaw();
    // Sleeps whole milliseconds: below 1000 not at all.
    static void SleepUs(uint32_t microSeconds);
    // Local time of a count of 1/divisor seconds, the rest as six digits behind a point;
    // "0-0-0 0:0:0.0" when the text is no number.
    static std::string TimestampToText(const std::string& text, uint64_t divisor);
    // Name of a result directory. `pidText` is padded to eight places by the caller.
    static std::string CreateResultPath(uint64_t id, const std::string& pidText);
    // Name of a device's directory below it: "host" for device 64.
    static std::string CreateTaskId(const std::string& device);

    // Memory.

    // Zeroed bytes, or null without a message.
    [[nodiscard]] static void* ProfMalloc(size_t size) {
        return size == 0 ? nullptr : std::calloc(1, size);
    }
    template <class T>
    static void ProfFree(T*& ptr) {
        std::free(ptr);
        ptr = nullptr;
    }
};

}  // namespace analysis::rokt::common::utils
