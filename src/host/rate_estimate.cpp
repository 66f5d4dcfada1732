// Weighing of samples.
#include "host/rate_estimate.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>

namespace tiv::host {

namespace {

namespace fs = std::filesystem;

constexpr double MS_PER_SECOND = 1000.0;
// TimeStamp of 15 digits, Index of 3, DataLen of 4, their keys and newlines, and the newline
// behind.
constexpr uint64_t FRAME_BYTES = 10 + 15 + 1 + 6 + 3 + 1 + 8 + 4 + 1 + 1;
constexpr std::string_view NAME_KEY = "ProcessName:";

// What could be read: a process may end between the opening and the reading of its file.
std::string Content(const fs::path& path) {
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();  // throws nothing, unlike a reading through iterators
    return content.str();
}

uint64_t Framed(uint64_t data) { return data == 0 ? 0 : data + FRAME_BYTES; }

bool IsProcess(const std::string& name) {
    return !name.empty() && std::all_of(name.begin(), name.end(),
                                        [](unsigned char c) { return std::isdigit(c) != 0; });
}

// The front of /proc/stat: the line of all CPUs, then one of each.
void WeighCpus(const std::string& stat, SampleSizes& sizes, uint64_t& allCpusLine) {
    uint64_t bytes = 0;
    size_t start = 0;
    while (stat.compare(start, 3, "cpu") == 0) {
        const size_t end = stat.find('\n', start);
        const size_t length = (end == std::string::npos ? stat.size() : end + 1) - start;
        allCpusLine = bytes == 0 ? length : allCpusLine;
        sizes.cpus += bytes == 0 ? 0 : 1;
        bytes += length;
        start += length;
    }
    sizes.cpu = Framed(bytes);
}

// A process has two files; its name stands in both, the line of all CPUs in one.
void WeighProcess(const fs::path& directory, uint64_t allCpusLine, SampleSizes& sizes) {
    const uint64_t stat = Content(directory / "stat").size();
    const uint64_t statm = Content(directory / "statm").size();
    if (stat == 0 || statm == 0) {
        return;
    }
    const uint64_t name = NAME_KEY.size() + Content(directory / "comm").size();
    ++sizes.processesAlive;
    sizes.processes += Framed(stat + name + allCpusLine) + Framed(statm + name);
}

uint64_t BytesOf(const std::string& sampler, const SampleSizes& sizes) {
    if (sampler == "cpu") {
        return sizes.cpu;
    }
    if (sampler == "memory") {
        return sizes.memory;
    }
    return sampler == "processes" ? sizes.processes : 0;
}

}  // namespace

SampleSizes MeasureSamples(const std::string& procRoot) {
    SampleSizes sizes;
    uint64_t allCpusLine = 0;
    WeighCpus(Content(procRoot + "/stat"), sizes, allCpusLine);
    sizes.memory = Framed(Content(procRoot + "/meminfo").size());
    std::error_code error;
    for (fs::directory_iterator entry(procRoot, error), end; !error && entry != end;
         entry.increment(error)) {
        if (IsProcess(entry->path().filename().string())) {
            WeighProcess(entry->path(), allCpusLine, sizes);
        }
    }
    return sizes;
}

std::vector<SamplerRate> EstimateRates(const DeviceJob& job, std::chrono::milliseconds interval,
                                       const SampleSizes& sizes) {
    std::vector<SamplerRate> rates;
    for (const std::string& sampler : job.samplers) {
        const uint64_t bytes = BytesOf(sampler, sizes);
        SamplerRate rate;
        rate.sampler = sampler;
        rate.known = bytes != 0;
        rate.bytesPerSecond =
            static_cast<double>(bytes) * MS_PER_SECOND / static_cast<double>(interval.count());
        rates.push_back(rate);
    }
    return rates;
}

}  // namespace tiv::host
