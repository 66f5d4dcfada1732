// Switches the report configuration on in the double of the daemon: the daemon itself loads none.
#include <stdlib.h>

#include "config/json_parser.h"

namespace {

// TIV_REPORT_CONFIG names the file.
const bool loaded = [] {
    const char* path = getenv("TIV_REPORT_CONFIG");
    if (path != nullptr) {
        Zelnarer::Parser::JsonParser::Instance().Init(path);
    }
    return path != nullptr;
}();

}  // namespace
