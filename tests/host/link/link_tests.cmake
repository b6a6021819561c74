# Tests of the ground station's protocol: the camera and the gimbal in it.
csrt_add_host_test(camera_component_test)
csrt_add_host_test(gimbal_client_test)
