# The floors of the house: a target may link targets of lower floors only. Two targets on one floor
# do not know each other. tools/check_floors.py reads the same table for #include lines.
#
#   target            floor  folder
set(TIV_FLOORS
    tiv_platform_api      1  platform
    tiv_platform          1  platform
    tiv_soft_driver       1  soft_driver
    tiv_common            2  common
    tiv_proto             3  message
    tiv_message           3  message
    tiv_config_tables     4  config
    tiv_driver            5  driver
    tiv_hdc               6  hdc
    tiv_config            6  config
    tiv_transport         7  transport
    tiv_job_wrapper       8  job_wrapper
    tiv_device            9  device
    tiv_daemon           10  daemon
    tiv_host              7  host)

function(tiv_floor_of target result)
  list(FIND TIV_FLOORS ${target} index)
  if(index EQUAL -1)
    set(${result} 0 PARENT_SCOPE)
  else()
    math(EXPR index "${index} + 1")
    list(GET TIV_FLOORS ${index} floor)
    set(${result} ${floor} PARENT_SCOPE)
  endif()
endfunction()

# Fails the configure run when `target` links a target that does not stand on a lower floor.
function(tiv_check_floor target)
  tiv_floor_of(${target} own)
  if(own EQUAL 0)
    message(FATAL_ERROR "${target} has no floor: add it to cmake/floors.cmake")
  endif()
  foreach(dependency IN LISTS ARGN)
    tiv_floor_of(${dependency} below)
    set(same_room FALSE)
    if(dependency STREQUAL "tiv_platform_api" OR dependency STREQUAL "tiv_proto")
      set(same_room TRUE)
    endif()
    if(below GREATER_EQUAL own AND NOT same_room)
      message(FATAL_ERROR "${target} (floor ${own}) links ${dependency} (floor ${below}): links point downwards only")
    endif()
  endforeach()
endfunction()
