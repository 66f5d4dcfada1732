# The tests of src/host/report and of what `tivctl info` tells.
find_package(ZLIB REQUIRED)
tiv_test(test_report
  SOURCES
    report_cell_series_test.cpp
    report_channel_test.cpp
    report_devices_test.cpp
    report_flame_tree_test.cpp
    report_limits_test.cpp
    report_model_test.cpp
    report_page_block_test.cpp
    report_page_grid_test.cpp
    report_page_test.cpp
    report_page_text_test.cpp
    result_info_test.cpp
    tivctl_report_test.cpp
  DEPENDS tiv_host tiv_fake_driver tiv_fake_mm tiv_recorded_log tiv_failing_new)
target_link_libraries(test_report PRIVATE ZLIB::ZLIB)
target_link_options(test_report PRIVATE -Wl,--wrap=compress2)
target_compile_definitions(test_report PRIVATE
  TIVCTL_PROGRAM="$<TARGET_FILE:tivctl>"
  TIV_STEPPED_CLOCK="$<TARGET_FILE:tiv_stepped_clock>"
  TIV_GOLDEN_DIR="${CMAKE_CURRENT_SOURCE_DIR}/golden")
add_dependencies(test_report tivctl tiv_stepped_clock)
