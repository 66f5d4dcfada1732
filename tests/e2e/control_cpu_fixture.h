// The daemon with a helper script where it looks for one.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "e2e/daemon_test.h"

namespace tiv::e2e {

// Places a script, with a stand-in for sudo, and takes care that nothing of it outlives the test.
class HelperScriptTest : public DaemonTest {
 protected:
    void SetUp() override;
    // `script` is a path below the source tree.
    void Place(const std::string& script);
    // Starts the daemon with a log that tells what becomes of the script.
    void StartTalkativeDaemon(int devices = 1);
    // The job of a host that asks for the control CPU at events 0x11 and 0x2a, up to its start.
    [[nodiscard]] static host::Reply StartRecording(HostJob& job, const std::string& jobId);
    // Runs `tivctl collect` until `ready` holds, then interrupts it and waits for its end. The
    // directory of its result; empty when there is none.
    std::string CollectUntil(const std::function<bool()>& ready, std::vector<std::string> words);
    // The row of a file in the table of the last CollectUntil: name, files, samples, bytes and
    // unit.
    [[nodiscard]] std::vector<std::string> Row(const std::string& name) const;

    std::unique_ptr<ChildProcess> tivctl_;
};

// Runs a line of the shell; true when its status is 0.
bool Shell(const std::string& line);

}  // namespace tiv::e2e
