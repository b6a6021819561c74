# Tests of the ground station's protocol: the camera and the gimbal in it, and both in real processes.
csrt_add_host_test(camera_component_test)
csrt_add_host_test(gimbal_client_test)
csrt_add_host_test(link_lines_test)
csrt_add_host_test(mavlink_front_test)

add_test(NAME mavlink_ground_station COMMAND ${PROJECT_SOURCE_DIR}/tests/mavlink/ground_station.sh ${csrt_program}
  $<TARGET_FILE:csrt_tracking_plugin> ${PROJECT_BINARY_DIR}/npm)
add_test(NAME mavlink_two_processes COMMAND ${PROJECT_SOURCE_DIR}/tests/host/link/two_processes.sh ${csrt_program}
  $<TARGET_FILE:csrt_tracking_plugin>)
# In real time, or in a time that is handed over: neither needs the machine for itself.
set_tests_properties(mavlink_ground_station PROPERTIES LABELS native SKIP_RETURN_CODE 77 TIMEOUT 300)
set_tests_properties(mavlink_two_processes PROPERTIES LABELS native TIMEOUT 300)
