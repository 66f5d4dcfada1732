// The fixed parts of a report page. They are put into the program by the build.
#pragma once

#include <string_view>

namespace tiv::host {

// A text that stands in the page as it is, and the SHA-256 of its bytes in hexadecimal.
struct PageAsset {
    std::string_view text;
    std::string_view sha256;
};

extern const PageAsset PAGE_FRAME;    // the page with places of the form @NAME@
extern const PageAsset PAGE_STYLE;    // our style sheet and the plotting library's
extern const PageAsset PAGE_LIBRARY;  // the plotting library
extern const PageAsset PAGE_SCRIPT;   // our script
extern const PageAsset PAGE_LICENCE;  // of the plotting library

}  // namespace tiv::host
