// Time, processor time and medians of benchmark rounds.
#include "bench/usage.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace tiv::bench {
namespace {

constexpr int FIELDS_BEFORE_CPU = 11;  // of /proc/<pid>/stat, behind the name

double Seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

}  // namespace

double OwnCpu() {
    rusage usage{};
    (void)getrusage(RUSAGE_SELF, &usage);
    return Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
}

double CpuOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(file, line);
    std::istringstream words(line.substr(line.rfind(')') + 1));
    std::string skipped;
    for (int field = 0; field < FIELDS_BEFORE_CPU; ++field) {
        words >> skipped;
    }
    double user = 0;
    double system = 0;
    words >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

uint64_t StatusNumber(pid_t pid, const std::string& name) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; file >> word;) {
        uint64_t number = 0;
        if (word == name + ":" && file >> number) {
            return number;
        }
    }
    return 0;
}

double Median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

}  // namespace tiv::bench
