# Many cameras on one machine, many machines for one evaluation.
csrt_add_host_test(control_query_test)
csrt_add_host_test(frame_rate_test)
csrt_add_host_test(status_command_test)
