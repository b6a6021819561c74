# The page of `serve --http`. Without cpp-httplib the program is complete but for that option.
find_package(PkgConfig QUIET)
if(PKG_CONFIG_FOUND)
  pkg_check_modules(CSRT_HTTP QUIET IMPORTED_TARGET cpp-httplib)
endif()
set(csrt_web_sources web/access.cpp web/clip.cpp web/command_queue.cpp web/config_book.cpp web/connection_watch.cpp web/frame_store.cpp web/glance.cpp
  web/requests.cpp web/run_keeper.cpp web/run_view.cpp web/timeline.cpp web/token_file.cpp web/web_front.cpp)
if(CSRT_HTTP_FOUND)
  list(APPEND csrt_web_sources web/web_server.cpp ${CMAKE_CURRENT_BINARY_DIR}/web_texts.cpp)
  set(csrt_web_library PkgConfig::CSRT_HTTP)
  set(page ${CMAKE_CURRENT_SOURCE_DIR}/web/page)
  csrt_embed_texts(${CMAKE_CURRENT_BINARY_DIR}/web_texts.cpp web/web_texts.h
    TEXTS kWebPage ${page}/page.html kWebStyle ${page}/page.css kWebIcon ${page}/icon.svg kWebMain ${page}/main.mjs
          kWebApi ${page}/api.mjs kWebGeometry ${page}/geometry.mjs kWebOverlay ${page}/overlay.mjs
          kWebPick ${page}/pick.mjs kWebTimeline ${page}/timeline.mjs kWebSave ${page}/save.mjs kWebSettings ${page}/settings.mjs
          kWebOpenApi ${CMAKE_CURRENT_SOURCE_DIR}/web/openapi.json)
else()
  list(APPEND csrt_web_sources web/web_server_none.cpp)
  set(csrt_web_library "")
endif()
