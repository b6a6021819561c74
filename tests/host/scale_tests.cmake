# Many cameras on one machine, many machines for one evaluation.
csrt_add_host_test(control_query_test)
csrt_add_host_test(frame_rate_test)
csrt_add_host_test(status_command_test)

# Shards over a real Slurm of this machine; as root, where it is installed.
if(NOT CMAKE_CROSSCOMPILING_EMULATOR AND NOT CSRT_SANITIZE)
  add_test(NAME slurm_shards COMMAND ${CMAKE_COMMAND} -E env CSRT_BUILD=${PROJECT_BINARY_DIR}
    ${PROJECT_SOURCE_DIR}/tools/slurm-check.sh)
  set_tests_properties(slurm_shards PROPERTIES LABELS native SKIP_RETURN_CODE 77 TIMEOUT 600)
endif()

# Three cameras at once: a fault of one stays with it.
add_test(NAME cameras_apart COMMAND ${CMAKE_COMMAND} -E env CSRT_BUILD=${PROJECT_BINARY_DIR}
  ${PROJECT_SOURCE_DIR}/tools/cameras-check.sh)
set_tests_properties(cameras_apart PROPERTIES LABELS native SKIP_RETURN_CODE 77 TIMEOUT 600 RESOURCE_LOCK live)
