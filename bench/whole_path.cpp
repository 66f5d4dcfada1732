// Entry of the whole-path benchmark: moves into a private namespace, then measures.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "bench/measures.h"

namespace {

constexpr const char* USAGE =
    "usage: whole_path path|latency|scale [--rounds N] [--seconds S] [--check]\n"
    "                                     [--devices N]\n";

// Returns only when it failed.
int EnterNamespace(char** argv) {
    char self[4096] = {0};
    if (readlink("/proc/self/exe", self, sizeof(self) - 1) < 0) {
        return 1;
    }
    std::vector<char*> words = {const_cast<char*>(TIV_ISOLATED_SCRIPT), self};
    for (char** word = argv + 1; *word != nullptr; ++word) {
        words.push_back(*word);
    }
    words.push_back(nullptr);
    execv(words[0], words.data());
    std::perror("cannot enter a private namespace");
    return 1;
}

bool ReadOptions(char** words, tiv::bench::PathOptions& options) {
    for (; *words != nullptr; ++words) {
        const std::string word = *words;
        if (word == "--check") {
            options.checkAll = true;
        } else if (word == "--rounds" && words[1] != nullptr) {
            options.rounds = std::atoi(*++words);
        } else if (word == "--seconds" && words[1] != nullptr) {
            options.seconds = std::atof(*++words);
        } else if (word == "--devices" && words[1] != nullptr) {
            options.devices = {1, std::atoi(*++words)};
        } else {
            return false;
        }
    }
    return options.rounds > 0 && options.seconds > 0 && options.devices.back() > 0;
}

bool Measure(const std::string& what, const tiv::bench::PathOptions& options) {
    if (what == "path") {
        tiv::bench::MeasurePath(options);
    } else if (what == "latency") {
        tiv::bench::MeasureLatency(options);
    } else if (what == "scale") {
        tiv::bench::MeasureScale(options);
    } else {
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    tiv::bench::PathOptions options;
    if (argc < 2 || !ReadOptions(argv + 2, options)) {
        (void)std::fputs(USAGE, stderr);
        return 2;
    }
    if (std::getenv("TIV_ISOLATED") == nullptr) {
        return EnterNamespace(argv);
    }
    (void)setenv("TIV_LOG_LEVEL", "error", 0);
    try {
        if (!Measure(argv[1], options)) {
            (void)std::fputs(USAGE, stderr);
            return 2;
        }
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "whole_path: %s\n", error.what());
        return 1;
    }
    return 0;
}
