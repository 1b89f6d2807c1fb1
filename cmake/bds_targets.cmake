# The functions with which every directory declares what it holds.

set(BDS_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Werror)
# Raw firmware layouts are packed on purpose, and ms_abi function types lose their attribute as template arguments.
list(APPEND BDS_WARNINGS -Wno-ignored-attributes -Wno-address-of-packed-member)
set(BDS_FREESTANDING -fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-strict-aliasing)

if(BDS_EFI)
  list(APPEND BDS_FREESTANDING -ffreestanding -fno-stack-protector -fno-asynchronous-unwind-tables
       -mno-red-zone -mno-stack-arg-probe -ffunction-sections -fdata-sections -mgeneral-regs-only)
endif()

set(BDS_SANITIZERS "")
if(BDS_SANITIZE)
  set(BDS_SANITIZERS -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  add_compile_options(${BDS_SANITIZERS})
  # Warnings that follow the flow of values are good where the code is optimised as it ships: in the host programs.
  list(REMOVE_ITEM BDS_WARNINGS -Werror)
  add_link_options(${BDS_SANITIZERS})
endif()

# One directory of the driver: freestanding code, the same for host programs and the image.
function(bds_driver_library directory)
  cmake_parse_arguments(ARG "" "" "SOURCES" ${ARGN})
  add_library(bds_${directory} STATIC ${ARG_SOURCES})
  target_include_directories(bds_${directory} PUBLIC ${PROJECT_SOURCE_DIR})
  target_compile_options(bds_${directory} PRIVATE ${BDS_WARNINGS} ${BDS_FREESTANDING})
  set_property(GLOBAL APPEND PROPERTY BDS_DRIVER_LIBRARIES bds_${directory})
endfunction()

# bds_driver: all driver directories as one link group, since steps of one directory call routines of others. The
# simulated machine is part of it: its I/O ports are what the driver's port routines reach in host programs.
function(bds_link_driver)
  get_property(libraries GLOBAL PROPERTY BDS_DRIVER_LIBRARIES)
  list(JOIN libraries "," joined)
  add_library(bds_driver INTERFACE)
  target_link_libraries(bds_driver INTERFACE "$<LINK_GROUP:RESCAN,${joined},sim_io_ports,sim_firmware>")
endfunction()

# A library of the simulated server or of the tools: hosted C++.
function(bds_host_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_compile_options(${name} PRIVATE ${BDS_WARNINGS})
  target_link_libraries(${name} PUBLIC ${ARG_LIBS})
endfunction()

# A GoogleTest program; each of its cases becomes a test of its own.
function(bds_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  find_package(GTest REQUIRED)
  include(GoogleTest)
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_compile_options(${name} PRIVATE ${BDS_WARNINGS} -g1)  # line numbers are enough, and quicker built
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest_main GTest::gmock)
  gtest_discover_tests(${name} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} DISCOVERY_MODE PRE_TEST
                       PROPERTIES TIMEOUT 600)
endfunction()
