// The options of a job, which `tivctl check` and `tivctl collect` share.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/job_plan.h"

namespace CLI {
class App;
}  // namespace CLI

namespace tiv::host {

// Declares what a job may be told on the command line and reads it, with the job file below it. One
// object per command.
class JobOptions {
 public:
    // Adds JOB and the options to `command`, which outlives this object.
    void Declare(CLI::App& command);
    // The words behind "--".
    void SetProgram(const std::vector<std::string>& words) { program_ = words; }

    // The job file's values with the options over them. No value, and `error` says why, when the
    // file cannot be read.
    [[nodiscard]] std::optional<CollectOptions> Read(std::string& error) const;

    // For the end of a command's help.
    static std::string Footer();

 private:
    static std::string MetricsNames();
    void DeclareSamplers(CLI::App& command);
    void DeclareCourse(CLI::App& command);
    void DeclareUnits(CLI::App& command);
    [[nodiscard]] bool Given(const char* option) const;
    void TakeSamplers(CollectOptions& options) const;
    void TakeCourse(CollectOptions& options) const;
    void TakeSettings(CollectOptions& options) const;

    CLI::App* command_ = nullptr;  // borrowed
    std::string jobFile_;
    CollectOptions given_;  // only those that the command line names mean something
    std::string duration_;
    std::string every_;
    std::string interval_ = "100ms";
    std::string wait_ = "0s";
    std::string drainTimeout_ = "60s";
    std::vector<std::string> settings_;  // NAME=VALUE
    std::optional<std::vector<std::string>> program_;
};

}  // namespace tiv::host
