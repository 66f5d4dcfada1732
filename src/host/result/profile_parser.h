// Reads the samples of the CPU profile.
#pragma once

#include <string>
#include <vector>

#include "host/result/file_parser.h"
#include "host/result/perf_script_text.h"

namespace tiv::host {

// The file is text: for each sample a head line, the frames of its stack, innermost first, and an
// empty line. The empty line alone tells that a sample is whole: one that lacks it was cut and is
// counted as unreadable.
//
// The command in a head line is at most 15 bytes of anything, line ends included. What stands
// between a sample's end and the next head line is the front of that command, as far as it fits.
//
//   BETWEEN --head--> STACK --empty line--> BETWEEN
class ProfileParser : public FileParser {
 public:
    using FileParser::FileParser;

    void Feed(std::string_view bytes) override;
    void Finish() override;

 private:
    // A frame as it is kept until its sample is whole; the texts lie in `texts_`.
    struct KeptFrame {
        uint64_t address;
        uint64_t offset;
        size_t symbol;
        size_t symbolBytes;
        size_t module;
        size_t moduleBytes;
    };
    struct KeptHead {
        ProfileHead head;  // its views are not used
        std::string command;
        std::string event;
    };

    void AppendToLine(std::string_view part);
    void EndLine();
    void TakeBetween(std::string_view line);
    void TakeInStack(std::string_view line);
    bool BeginSample(std::string_view line);
    bool KeepFrame(const StackFrame& frame);
    void EndSample();
    void DropSample();
    void DropFront();

    std::string line_;
    bool lineIsTooLong_ = false;
    uint64_t lineBytes_ = 0;

    std::string front_;  // of a command that holds line ends
    bool inStack_ = false;
    bool isBroken_ = false;
    uint64_t sampleBytes_ = 0;
    KeptHead head_;
    std::vector<KeptFrame> frames_;
    std::string texts_;
    std::vector<StackFrame> stack_;
};

}  // namespace tiv::host
