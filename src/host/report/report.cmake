# The report page: its sources and its assets, for the library of this folder's parent.
find_package(ZLIB REQUIRED)
find_path(TIV_DYGRAPHS dygraph.min.js PATHS /usr/share/javascript/dygraphs REQUIRED
          DOC "Folder of the plotting library dygraphs 2")

set(report_page "${CMAKE_CURRENT_SOURCE_DIR}/report/page")
set(report_assets "${CMAKE_CURRENT_BINARY_DIR}/page_assets.cpp")
file(GLOB report_page_files CONFIGURE_DEPENDS "${report_page}/*")
add_custom_command(
  OUTPUT "${report_assets}"
  COMMAND "${CMAKE_COMMAND}" "-DOUT=${report_assets}" "-DPAGE=${report_page}"
          "-DLIBRARY=${TIV_DYGRAPHS}/dygraph.min.js"
          "-DLIBRARY_STYLE=${TIV_DYGRAPHS}/dygraph.min.css"
          -P "${CMAKE_CURRENT_SOURCE_DIR}/report/embed_page.cmake"
  DEPENDS ${report_page_files} "${CMAKE_CURRENT_SOURCE_DIR}/report/embed_page.cmake"
          "${TIV_DYGRAPHS}/dygraph.min.js" "${TIV_DYGRAPHS}/dygraph.min.css"
  COMMENT "Generating the report page's assets"
  VERBATIM)

target_sources(tiv_host PRIVATE
  report/cell_series.cpp
  report/arrival_part.cpp
  report/channel_part.cpp
  report/file_part.cpp
  report/flame_tree.cpp
  report/make_report.cpp
  report/memory_part.cpp
  report/page_block.cpp
  report/page_grid.cpp
  report/page_text.cpp
  report/process_part.cpp
  report/profile_part.cpp
  report/report_model.cpp
  report/report_page.cpp
  report/system_part.cpp
  "${report_assets}")
target_link_libraries(tiv_host PRIVATE ZLIB::ZLIB)
