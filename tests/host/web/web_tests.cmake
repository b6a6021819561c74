# Tests of the page in a browser: its rules, its server, and the page itself.
csrt_add_host_test(web_access_test)
csrt_add_host_test(web_config_test)
csrt_add_host_test(web_frames_test)
csrt_add_host_test(web_view_test)
if(CSRT_HTTP_FOUND)
  csrt_add_host_test(web_server_test)
  csrt_add_host_test(web_api_test valijson)
  # The page itself in headless Chromium; skipped where there is none.
  add_test(NAME web_page COMMAND ${CMAKE_CURRENT_LIST_DIR}/page_test.py ${csrt_program}
    $<TARGET_FILE:csrt_tracking_plugin_fast>)
  add_test(NAME web_accessible COMMAND ${CMAKE_CURRENT_LIST_DIR}/accessible.sh ${csrt_program}
    $<TARGET_FILE:csrt_tracking_plugin_fast> ${PROJECT_BINARY_DIR}/npm)
  set_tests_properties(web_page web_accessible PROPERTIES LABELS native SKIP_RETURN_CODE 77 TIMEOUT 600 RESOURCE_LOCK browser)
endif()
