# Makes page_assets.cpp out of the files of the page. Run as a script by the build:
#
#   cmake -DOUT=<file> -DPAGE=<folder of the page> -DLIBRARY=<dygraph.min.js>
#         -DLIBRARY_STYLE=<dygraph.min.css> -P embed_page.cmake
#
# A file that could end the element in which it stands fails the build.
set(SCRIPTS format.js dom.js data.js timeline.js chart.js heatmap.js overview.js flame.js table.js
    main.js)

function(read_text file result)
  file(READ "${file}" text)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

# append_asset(<name> <text>): the text is cut into literals that every compiler takes.
function(append_asset name text)
  string(TOLOWER "${text}" lower)
  if(NOT name STREQUAL "PAGE_FRAME")
    foreach(end "</script" "</style" "<!--" "-->")
      string(FIND "${lower}" "${end}" place)
      if(NOT place EQUAL -1)
        message(FATAL_ERROR "${name} holds ${end}, which would end its place in the page")
      endif()
    endforeach()
  endif()
  string(FIND "${text}" ")TIV_ASSET\"" place)
  if(NOT place EQUAL -1)
    message(FATAL_ERROR "${name} holds the end of its literal")
  endif()
  string(SHA256 hash "${text}")
  file(APPEND "${OUT}.new" "const PageAsset ${name} = {R\"TIV_ASSET(${text})TIV_ASSET\",\n    \"${hash}\"};\n")
endfunction()

file(WRITE "${OUT}.new" "// Made by the build out of src/host/report/page and the plotting library.
#include \"host/report/page_assets.h\"

namespace tiv::host {

")
read_text("${PAGE}/page.html" frame)
append_asset(PAGE_FRAME "${frame}")

# The maps of the library lie on the machine that built the page only.
read_text("${LIBRARY_STYLE}" library_style)
string(REGEX REPLACE "/\\*# sourceMappingURL=[^\n]*" "" library_style "${library_style}")
read_text("${PAGE}/page.css" style)
append_asset(PAGE_STYLE "${library_style}\n${style}")

read_text("${LIBRARY}" library)
string(REGEX REPLACE "\n//# sourceMappingURL=[^\n]*" "" library "${library}")
append_asset(PAGE_LIBRARY "${library}")

set(script "(function () {\n'use strict';\n")
foreach(name IN LISTS SCRIPTS)
  read_text("${PAGE}/${name}" text)
  string(APPEND script "${text}\n")
endforeach()
string(APPEND script "})();\n")
append_asset(PAGE_SCRIPT "${script}")

read_text("${PAGE}/dygraphs_licence.txt" licence)
append_asset(PAGE_LICENCE "The plots are drawn by dygraphs.\n\n${licence}")
file(APPEND "${OUT}.new" "\n}  // namespace tiv::host\n")
file(RENAME "${OUT}.new" "${OUT}")
