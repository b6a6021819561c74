# Tests of the host program. They run the built program on drawn scenes with a scripted plug-in, so that every answer
# a plug-in can give is tried; the ones that need the real plug-in load it as a foreign host does.
add_library(fake_plugin MODULE fake_plugin.cpp)
target_link_libraries(fake_plugin PRIVATE OculaTools class_loader::class_loader csrt_warnings)

# Every record that a test reads is held against the published schema.
find_package(valijson REQUIRED)
add_library(record_schema STATIC record_schema.cpp)
target_link_libraries(record_schema PUBLIC csrt_host PRIVATE valijson)

# What tests start as the program: itself, or a script that starts it under the emulator where it was built for
# another processor.
set(csrt_program $<TARGET_FILE:csrt-track>)
if(CMAKE_CROSSCOMPILING_EMULATOR)
  set(csrt_program ${CMAKE_CURRENT_BINARY_DIR}/csrt-track-emulated)
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " csrt_emulator)
  file(GENERATE OUTPUT ${csrt_program} CONTENT "#!/bin/sh\nexec ${csrt_emulator} $<TARGET_FILE:csrt-track> \"$@\"\n"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
endif()

# csrt_add_host_test(<name> [libraries...]): like csrt_add_test, with the program and both plug-ins at hand.
function(csrt_add_host_test name)
  csrt_add_test(${name} csrt_host record_schema ${ARGN})
  target_compile_definitions(${name} PRIVATE
    CSRT_TRACK_PROGRAM="${csrt_program}"
    CSRT_FAKE_PLUGIN="$<TARGET_FILE:fake_plugin>"
    CSRT_REAL_PLUGIN="$<TARGET_FILE:csrt_tracking_plugin>")
  add_dependencies(${name} csrt-track fake_plugin csrt_tracking_plugin)
endfunction()

csrt_add_host_test(annotate_test)
csrt_add_host_test(config_check_test)
csrt_add_host_test(config_command_test)
csrt_add_host_test(live_window_test)
csrt_add_host_test(log_capture_test)
csrt_add_host_test(record_schema_test)
csrt_add_host_test(run_summary_test)
csrt_add_host_test(track_state_test)
csrt_add_host_test(target_option_test)
csrt_add_host_test(track_command_test)
csrt_add_host_test(worker_pool_test)
