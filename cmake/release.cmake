# What makes the Windows lane's files fit to be shipped.

# Gives `target` a version resource.
function(orvane_version target file_name file_type description)
  set(ORVANE_FILE_NAME "${file_name}")
  set(ORVANE_FILE_TYPE "${file_type}")
  set(ORVANE_FILE_DESCRIPTION "${description}")
  set(resource "${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc")
  configure_file(src/api/version.rc.in "${resource}" @ONLY)
  target_sources(${target} PRIVATE "${resource}")
endfunction()

# Moves the debug symbols of `target` into a file of their own beside it; the stripped file names that.
function(orvane_split_symbols target)
  set(file "$<TARGET_FILE:${target}>")
  # The tools would write the present time into each file.
  set(timeless ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=0)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${timeless} ${CMAKE_OBJCOPY} --only-keep-debug ${file} ${file}.debug
    COMMAND ${timeless} ${CMAKE_STRIP} --strip-all ${file}
    COMMAND ${timeless} ${CMAKE_OBJCOPY} --add-gnu-debuglink=${file}.debug ${file}
    VERBATIM)
endfunction()

# Installs what a host needs: the library, the launcher, the header, the import files and the CMake package.
function(orvane_install)
  include(CMakePackageConfigHelpers)
  set(package lib/cmake/OrvaneMcp)
  install(TARGETS orvane_mcp EXPORT OrvaneMcpTargets RUNTIME DESTINATION bin ARCHIVE DESTINATION lib
          INCLUDES DESTINATION include)
  install(TARGETS launcher RUNTIME DESTINATION bin)
  install(FILES src/api/exports.h DESTINATION include/orvane_mcp)
  install(FILES src/api/orvane_mcp.def DESTINATION lib)
  install(FILES docs/host-integration.md docs/control-protocol.md DESTINATION docs)
  install(EXPORT OrvaneMcpTargets FILE OrvaneMcpConfig.cmake NAMESPACE OrvaneMcp:: DESTINATION ${package})
  write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/OrvaneMcpConfigVersion.cmake"
                                   COMPATIBILITY SameMinorVersion)
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/OrvaneMcpConfigVersion.cmake" DESTINATION ${package})
endfunction()
