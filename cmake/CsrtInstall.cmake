# cmake --install and the Debian packages (cpack -G DEB).
#
# The plug-in and the stand-in frame library live in a folder of their own: both are loaded by name, by a host that
# knows where to look, and neither has a versioned name of its own (the real frame library has none either).
include(CMakePackageConfigHelpers)

set(CSRT_PLUGIN_DIR ${CMAKE_INSTALL_LIBDIR}/csrt-tracking)
set(csrt_doc_dir ${CMAKE_INSTALL_DATADIR}/doc)
set_target_properties(csrt_tracking_plugin csrt_tracking_plugin_fast PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS csrt_tracking_plugin csrt_tracking_plugin_fast LIBRARY DESTINATION ${CSRT_PLUGIN_DIR} COMPONENT plugin)

if(NOT CSRT_OCULA_LIBRARY)
  install(TARGETS OculaTools LIBRARY DESTINATION ${CSRT_PLUGIN_DIR} COMPONENT hostlib)
endif()

# Development files: what a host includes, and how it finds library and plug-in.
install(FILES ${PROJECT_SOURCE_DIR}/include/ialgo_plugin.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/csrt-tracking COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/ocula/ocula_picture.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/csrt-tracking/ocula COMPONENT dev)
configure_package_config_file(cmake/csrt_tracking_pluginConfig.cmake.in
  ${PROJECT_BINARY_DIR}/csrt_tracking_pluginConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/csrt_tracking_plugin PATH_VARS CMAKE_INSTALL_INCLUDEDIR CSRT_PLUGIN_DIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/csrt_tracking_pluginConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/csrt_tracking_pluginConfig.cmake
              ${PROJECT_BINARY_DIR}/csrt_tracking_pluginConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/csrt_tracking_plugin COMPONENT dev)
file(RELATIVE_PATH csrt_pc_to_prefix /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)  # the tree may be moved
configure_file(cmake/csrt_tracking_plugin.pc.in ${PROJECT_BINARY_DIR}/csrt_tracking_plugin.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/csrt_tracking_plugin.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# csrt_install_library(<target> <component> <header>...): a static library of its own, with CMake package and pkg-config
# file. Static, because neither promises its binary interface from one version to the next.
function(csrt_install_library target component)
  install(TARGETS ${target} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component})
  install(FILES ${ARGN} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${target} COMPONENT ${component})
  set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${target})
  configure_package_config_file(cmake/${target}Config.cmake.in ${PROJECT_BINARY_DIR}/${target}Config.cmake
    INSTALL_DESTINATION ${package_dir} PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR)
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/${target}ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/${target}Config.cmake ${PROJECT_BINARY_DIR}/${target}ConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT ${component})
  configure_file(cmake/${target}.pc.in ${PROJECT_BINARY_DIR}/${target}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${target}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT ${component})
endfunction()

# The engine alone, for programs that use OpenCV's tracker and nothing else of this project; and the guard alone, for
# those that have a tracker and want to know when it is wrong.
csrt_install_library(csrt_engine engine ${PROJECT_SOURCE_DIR}/engine/include/csrt_engine/csrt_engine.h)
file(GLOB csrt_guard_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/guard/include/csrt_guard/*.h)
if(TARGET csrt_guard_network)  # only where OpenCV can run a tracker network
  install(TARGETS csrt_guard_network ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT guard)
  configure_file(cmake/csrt_guard_network.pc.in ${PROJECT_BINARY_DIR}/csrt_guard_network.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/csrt_guard_network.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT guard)
else()
  list(FILTER csrt_guard_headers EXCLUDE REGEX network)
endif()
csrt_install_library(csrt_guard guard ${csrt_guard_headers})

# The modules for live sources: a package of their own, so that the program alone stays small.
foreach(module csrt_live_gst csrt_live_av)
  if(TARGET ${module})
    install(TARGETS ${module} LIBRARY DESTINATION ${CSRT_PLUGIN_DIR} COMPONENT live)
    set(csrt_has_live TRUE)
  endif()
endforeach()
if(csrt_has_live)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/systemd/csrt-track@.service DESTINATION lib/systemd/system
    COMPONENT live)
  install(PROGRAMS ${PROJECT_SOURCE_DIR}/packaging/systemd/restart-pause DESTINATION lib/csrt-track COMPONENT live)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/systemd/camera.env
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/csrt-track-live/examples COMPONENT live)
  set(csrt_live_component live)
endif()

if(TARGET csrt-track)
  set_target_properties(csrt-track PROPERTIES INSTALL_RPATH "$ORIGIN/../${CSRT_PLUGIN_DIR}")
  install(TARGETS csrt-track RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/csrt-track.bash-completion
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME csrt-track COMPONENT tools)
  find_program(HELP2MAN help2man)
  find_program(GZIP_PROGRAM gzip)
  if(HELP2MAN AND GZIP_PROGRAM)
    add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/csrt-track.1.gz
      COMMAND ${PROJECT_SOURCE_DIR}/tools/man-page.sh $<TARGET_FILE:csrt-track> ${PROJECT_BINARY_DIR}/csrt-track.1
      COMMAND ${GZIP_PROGRAM} -9nf ${PROJECT_BINARY_DIR}/csrt-track.1
      DEPENDS csrt-track ${PROJECT_SOURCE_DIR}/tools/man-page.sh VERBATIM)
    add_custom_target(man ALL DEPENDS ${PROJECT_BINARY_DIR}/csrt-track.1.gz)
    install(FILES ${PROJECT_BINARY_DIR}/csrt-track.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  endif()
endif()

# ------------------------------------------------------------------------------------------------ Debian packages

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME csrt-tracking)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # otherwise goes before every package's own first line
set(CPACK_PACKAGE_VENDOR "csrt-tracking maintainers")
set(CPACK_PACKAGE_CONTACT "csrt-tracking maintainers <maintainers@csrt-tracking.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL plugin hostlib dev tools engine guard ${csrt_live_component})
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(csrt_package_plugin csrt-tracking-plugin)
set(csrt_package_hostlib libocula-tools-standin)
set(csrt_package_dev csrt-tracking-dev)
set(csrt_package_tools csrt-track)
set(csrt_package_engine libcsrt-engine-dev)
set(csrt_package_guard libcsrt-guard-dev)
set(csrt_package_live csrt-track-live)
set(csrt_section_plugin libs)
set(csrt_section_hostlib libs)
set(csrt_section_dev libdevel)
set(csrt_section_tools video)
set(csrt_section_engine libdevel)
set(csrt_section_guard libdevel)
set(csrt_section_live video)
set(csrt_depends_plugin "libocula-tools-standin (= ${PROJECT_VERSION}-1)")
set(csrt_depends_hostlib "")
set(csrt_depends_dev
  "csrt-tracking-plugin (= ${PROJECT_VERSION}-1), ament-cmake, libclass-loader-dev, libconsole-bridge-dev, libopencv-dev")
set(csrt_depends_tools "csrt-tracking-plugin (= ${PROJECT_VERSION}-1)")
set(csrt_depends_engine "libopencv-dev, libopencv-contrib-dev")
set(csrt_depends_guard "libopencv-dev")
set(csrt_depends_live "csrt-track (= ${PROJECT_VERSION}-1), gstreamer1.0-plugins-base, gstreamer1.0-plugins-good")
set(CPACK_DEBIAN_LIVE_PACKAGE_RECOMMENDS "gstreamer1.0-libav, gstreamer1.0-plugins-bad, gstreamer1.0-plugins-ugly")
file(READ ${PROJECT_SOURCE_DIR}/packaging/descriptions.txt csrt_descriptions)
find_program(GZIP_PROGRAM gzip)
foreach(component plugin hostlib dev tools engine guard ${csrt_live_component})
  string(TOUPPER ${component} upper)
  set(package ${csrt_package_${component}})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${csrt_section_${component}})
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${csrt_depends_${component}}")
  string(REGEX MATCH "${package}:([^@]*)@" matched "${csrt_descriptions}")
  string(STRIP "${CMAKE_MATCH_1}" description)
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${description}")
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/copyright
    DESTINATION ${csrt_doc_dir}/${package} COMPONENT ${component})
  configure_file(packaging/lintian-overrides.in ${PROJECT_BINARY_DIR}/packaging/overrides/${package} @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/packaging/overrides/${package}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
  if(GZIP_PROGRAM)
    set(changelog ${PROJECT_BINARY_DIR}/packaging/changelog.Debian)
    configure_file(packaging/debian/changelog ${changelog} COPYONLY)
    execute_process(COMMAND ${GZIP_PROGRAM} -9nkf ${changelog})
    install(FILES ${changelog}.gz DESTINATION ${csrt_doc_dir}/${package} COMPONENT ${component})
  endif()
endforeach()
include(CPack)
