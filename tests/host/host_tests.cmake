# Tests of the host program. They run the built program on drawn scenes with a scripted plug-in, so that every answer
# a plug-in can give is tried; the ones that need the real plug-in load it as a foreign host does.
add_library(fake_plugin MODULE host/plugin/fake_plugin.cpp)
target_link_libraries(fake_plugin PRIVATE OculaTools class_loader::class_loader csrt_warnings)

csrt_add_visible_threads(csrt-track)

# Every record that a test reads is held against the published schema.
find_package(valijson REQUIRED)
add_library(record_schema STATIC support/record_schema.cpp)
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
    CSRT_REAL_PLUGIN="$<TARGET_FILE:csrt_tracking_plugin>"
    CSRT_FAST_PLUGIN="$<TARGET_FILE:csrt_tracking_plugin_fast>")
  add_dependencies(${name} csrt-track fake_plugin csrt_tracking_plugin csrt_tracking_plugin_fast)
endfunction()

csrt_add_host_test(annotate_test)
csrt_add_host_test(config_check_test)
csrt_add_host_test(config_command_test)
csrt_add_host_test(frame_times_test)
csrt_add_host_test(engine_option_test)
csrt_add_host_test(help_test)
csrt_add_host_test(bad_input_test)
csrt_add_host_test(file_plan_test)
csrt_add_host_test(live_window_test)
csrt_add_host_test(played_source_test)
csrt_add_host_test(serve_command_test)
csrt_add_host_test(serve_run_test)
csrt_add_host_test(log_capture_test)
csrt_add_host_test(output_files_test)
csrt_add_host_test(outside_text_test)
csrt_add_host_test(record_schema_test)
csrt_add_host_test(guard_record_test)
csrt_add_host_test(guard_time_test)
csrt_add_host_test(guard_network_test)
csrt_add_host_test(reason_words_test)
csrt_add_host_test(run_memory_test)
csrt_add_host_test(run_loop_test)
csrt_add_host_test(shared_options_test)
csrt_add_host_test(text_parts_test)
csrt_add_host_test(run_summary_test)
csrt_add_host_test(comparison_test)
csrt_add_host_test(follower_test)
csrt_add_host_test(evaluate_command_test)
csrt_add_host_test(evaluation_metrics_test)
csrt_add_host_test(call_facts_test)
csrt_add_host_test(truth_reader_test)
csrt_add_host_test(tuning_test)
csrt_add_host_test(target_option_test)
csrt_add_host_test(track_command_test)
csrt_add_host_test(video_times_test)
csrt_add_host_test(worker_pool_test)

# Plug-ins that are broken, for csrt-track doctor.
foreach(kind MISSING NEEDS_MISSING OTHER_BASE OTHER_RECORDS THROWS CRASHES ENDS)
  string(TOLOWER broken_${kind} target)
  add_library(${target} SHARED host/plugin/broken_plugin.cpp)
  target_compile_definitions(${target} PRIVATE BROKEN_${kind})
  target_link_libraries(${target} PRIVATE OculaTools class_loader::class_loader csrt_warnings)
endforeach()
target_link_libraries(broken_needs_missing PRIVATE -Wl,--no-as-needed broken_missing)
# Found when it is linked and by no one afterwards.
set_target_properties(broken_missing PROPERTIES OUTPUT_NAME broken_missing_gone
  LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/not_searched)
set_target_properties(broken_needs_missing PROPERTIES SKIP_BUILD_RPATH ON)
csrt_add_host_test(doctor_test)
add_dependencies(doctor_test broken_needs_missing broken_other_base broken_other_records broken_throws broken_crashes broken_ends)
target_compile_definitions(doctor_test PRIVATE
  BROKEN_NEEDS_MISSING="$<TARGET_FILE:broken_needs_missing>"
  BROKEN_OTHER_BASE="$<TARGET_FILE:broken_other_base>"
  BROKEN_OTHER_RECORDS="$<TARGET_FILE:broken_other_records>"
  BROKEN_THROWS="$<TARGET_FILE:broken_throws>"
  BROKEN_CRASHES="$<TARGET_FILE:broken_crashes>"
  BROKEN_ENDS="$<TARGET_FILE:broken_ends>")
# A crash must end the process that is watched, not the sanitizer that is linked to it.
set_tests_properties(doctor_test PROPERTIES ENVIRONMENT_MODIFICATION
  "ASAN_OPTIONS=string_append::handle_segv=0;TSAN_OPTIONS=string_append::handle_segv=0")

include(host/link/link_tests.cmake)
include(host/scale_tests.cmake)
include(host/simulator/simulator_tests.cmake)
include(host/web/web_tests.cmake)

csrt_add_host_test(replay_test)
csrt_add_host_test(report_test)

add_test(NAME host_footprint
  COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/host/host_footprint.sh ${csrt_program} $<TARGET_FILE:csrt_tracking_plugin>)
# Starts the program under another; skipped where that is not permitted.
set_tests_properties(host_footprint PROPERTIES LABELS native SKIP_RETURN_CODE 77)

add_test(NAME live_window COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/host/run/live_window.sh ${csrt_program}
  $<TARGET_FILE:csrt_tracking_plugin>)
set_tests_properties(live_window PROPERTIES LABELS native SKIP_RETURN_CODE 77)

# Live sources: the rules with given clocks, and short runs with real senders where those are installed.
add_executable(live_probe ${CMAKE_CURRENT_LIST_DIR}/live/live_probe.cpp)
target_link_libraries(live_probe PRIVATE csrt_live csrt_warnings)
csrt_add_visible_threads(live_probe)
add_custom_target(live_modules)  # what the program loads to receive
foreach(module csrt_live_gst csrt_live_av)
  if(TARGET ${module})
    add_dependencies(live_modules ${module})
    add_dependencies(csrt-track ${module})
  endif()
endforeach()
# One after the other: each needs both processors of a small machine.
foreach(check rtsp ts ffmpeg rtp http sdp stdin pipeline alone stopped killed reconnect wrong decoder garbage resized jumps
    clip klv synchronous simulated sidecar control outputs)
  add_test(NAME live_${check} COMMAND ${CMAKE_COMMAND} -E env CSRT_BUILD=${PROJECT_BINARY_DIR}
    CSRT_PLUGIN=$<TARGET_FILE:csrt_tracking_plugin> ${PROJECT_SOURCE_DIR}/tools/live-check.sh --short ${check})
  set_tests_properties(live_${check} PROPERTIES LABELS native SKIP_RETURN_CODE 77 TIMEOUT 180 RESOURCE_LOCK live)
endforeach()
csrt_add_host_test(control_test)
csrt_add_test(capture_rules_test csrt_live)
csrt_add_test(capture_test csrt_live)
csrt_add_test(camera_track_test csrt_live)
csrt_add_test(live_address_test csrt_live)
csrt_add_host_test(frame_centre_test)
csrt_add_host_test(signal_loss_test)
csrt_add_host_test(sidecar_test)
csrt_add_host_test(grid_test)
csrt_add_host_test(box_proposal_test)
