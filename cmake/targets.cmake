# tiv_library(<target> SOURCES <files> [DEPENDS <targets of lower floors>] [EXTERNAL <outside libraries>])
# Makes the static library of one folder (or an interface library when it has no sources).
function(tiv_library target)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS;EXTERNAL" ${ARGN})
  tiv_check_floor(${target} ${ARG_DEPENDS})
  if(ARG_SOURCES)
    add_library(${target} STATIC ${ARG_SOURCES})
    target_link_libraries(${target} PRIVATE tiv_flags PUBLIC ${ARG_DEPENDS} ${ARG_EXTERNAL})
    target_include_directories(${target} PUBLIC "${PROJECT_SOURCE_DIR}/src")
  else()
    add_library(${target} INTERFACE)
    target_link_libraries(${target} INTERFACE ${ARG_DEPENDS} ${ARG_EXTERNAL})
    target_include_directories(${target} INTERFACE "${PROJECT_SOURCE_DIR}/src")
  endif()
endfunction()

# The libraries that stand behind a C interface. Product libraries call the interface without naming
# any of them, so that they go into a program whole, wherever they stand on its link line.
set(TIV_INTERFACE_IMPLEMENTATIONS tiv_platform tiv_recorded_log tiv_fake_mm tiv_fake_driver
    tiv_fake_driver_without_flush tiv_fake_resource_manager)

# tiv_link(<program> <targets>): links our targets to a program.
function(tiv_link program)
  target_link_libraries(${program} PRIVATE tiv_flags)
  # The driver library stands in front of the archives that call it: some linkers drop it there.
  target_link_options(${program} PRIVATE "LINKER:--no-as-needed")
  foreach(dependency IN LISTS ARGN)
    if(dependency IN_LIST TIV_INTERFACE_IMPLEMENTATIONS)
      target_link_libraries(${program} PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,${dependency}>")
    else()
      target_link_libraries(${program} PRIVATE ${dependency})
    endif()
  endforeach()
endfunction()

# tiv_program(<target> SOURCES <files> DEPENDS <targets>)
# Makes a program on the Linux platform and the configured driver library, and installs it.
function(tiv_program target)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${target} ${ARG_SOURCES})
  tiv_link(${target} ${ARG_DEPENDS} tiv_platform)
  if(TIV_DRIVER_LIBRARY)
    target_link_libraries(${target} PRIVATE "${TIV_DRIVER_LIBRARY}")
  else()
    target_link_libraries(${target} PRIVATE tiv_soft_driver)
  endif()
  tiv_keep_counters(${target})
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()

# tiv_test(<target> SOURCES <files> DEPENDS <targets> [LABELS <labels>] [TIMEOUT <seconds>])
# Makes one GoogleTest program; each of its tests is a test of CTest and runs in a process of its own.
function(tiv_test target)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;DEPENDS;LABELS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 60)
  endif()
  add_executable(${target} ${ARG_SOURCES})
  tiv_link(${target} ${ARG_DEPENDS})
  target_link_libraries(${target} PRIVATE GTest::gmock GTest::gtest_main)
  # What is measured and shipped is optimised; the tests around it only have to compile fast.
  target_compile_options(${target} PRIVATE $<$<CONFIG:Release,RelWithDebInfo>:-O0>)
  target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}/src" "${PROJECT_SOURCE_DIR}/tests")
  gtest_discover_tests(${target} TEST_PREFIX "${target}." DISCOVERY_MODE PRE_TEST
                       PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
endfunction()
