# Tests of the simulated gimbal camera and of metadata for recorded video.
csrt_add_host_test(metadata_file_test)
csrt_add_host_test(frame_clock_test)
csrt_add_host_test(loop_trial_test)
csrt_add_host_test(stale_angles_test)
csrt_add_host_test(simulator_test)
csrt_add_host_test(scenario_reader_test)
csrt_add_host_test(simulate_command_test)
csrt_add_host_test(honesty_test)
csrt_add_host_test(honesty_scene_test)

# Each shipped scenario is run to its end; the program's exit status says whether all it expects was met.
file(GLOB scenarios CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/host/simulator/scenarios/*.json)
foreach(file ${scenarios})
  get_filename_component(scenario ${file} NAME_WE)
  if(scenario STREQUAL honesty)
    continue()  # the longest one: honesty_scene_test runs it and looks closer
  endif()
  add_test(NAME simulate_${scenario} COMMAND csrt-track simulate ${scenario})
endforeach()
