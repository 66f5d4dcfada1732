// Putting the page together.
#include "host/report/report_page.h"

#include <fmt/format.h>

#include <map>

#include "host/output_file.h"
#include "host/report/page_assets.h"
#include "host/report/page_block.h"
#include "host/report/report_model.h"
#include "host/version.h"

namespace tiv::host {

namespace {

unsigned HexDigit(char digit) {
    return static_cast<unsigned>(digit <= '9' ? digit - '0' : digit - 'a' + 10);
}

// A hash as content security policies name it.
std::string HashSource(const PageAsset& asset) {
    std::string bytes;
    for (size_t i = 0; i + 1 < asset.sha256.size(); i += 2) {
        bytes += static_cast<char>(HexDigit(asset.sha256[i]) << 4 | HexDigit(asset.sha256[i + 1]));
    }
    return "'sha256-" + Base64(bytes) + "'";
}

std::string Policy() {
    return fmt::format("default-src 'none'; script-src {} {}; style-src {}",
                       HashSource(PAGE_LIBRARY), HashSource(PAGE_SCRIPT), HashSource(PAGE_STYLE));
}

// What belongs in a place of the frame, such as "@DATA@".
std::string_view ContentOf(std::string_view place, std::string_view policy, std::string_view data) {
    static const std::string generator = std::string("tivctl ") + VERSION;
    const std::map<std::string_view, std::string_view> contents = {
        {"@POLICY@", policy},
        {"@GENERATOR@", generator},
        {"@STYLE@", PAGE_STYLE.text},
        {"@LICENCE@", PAGE_LICENCE.text},
        {"@DATA@", data},
        {"@LIBRARY@", PAGE_LIBRARY.text},
        {"@SCRIPT@", PAGE_SCRIPT.text},
    };
    return contents.at(place);
}

std::string WritePage(const std::string& path, const std::string& page) {
    OutputFile file(path);
    if (file.Open()) {
        file.Write(page);
        (void)file.Commit();  // a failure stays in its error
    }
    return file.Error();
}

}  // namespace

std::string MakePage(std::string_view encodedData) {
    const std::string policy = Policy();
    const std::string_view frame = PAGE_FRAME.text;
    std::string page;
    size_t position = 0;
    for (size_t begin = frame.find('@'); begin != std::string_view::npos;
         begin = frame.find('@', position)) {
        page += frame.substr(position, begin - position);
        position = frame.find('@', begin + 1) + 1;
        page += ContentOf(frame.substr(begin, position - begin), policy, encodedData);
    }
    page += frame.substr(position);
    return page;
}

ReportOutcome WriteReport(const ResultDirectory& result, const std::string& path,
                          const OnReadProgress& onProgress) {
    ReportModel model;
    ResultReader reader(result, model);
    ReportOutcome outcome;
    outcome.reading = reader.Read(onProgress);
    outcome.cancelled = outcome.reading.cancelled;
    if (!outcome.cancelled) {
        outcome.error = WritePage(path, MakePage(model.Encode()));
    }
    return outcome;
}

}  // namespace tiv::host
