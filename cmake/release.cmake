# Makes the Windows lane's files ready to ship.

# The same commit builds to the same bytes anywhere: neither the files nor their symbols contain the build's paths.
# Symbols contain the command lines of compiler and linker, so all paths in those are relative to the build folder.
file(RELATIVE_PATH relative_out "${CMAKE_BINARY_DIR}" "${ORVANE_OUT}")
file(RELATIVE_PATH relative_source "${CMAKE_BINARY_DIR}" "${CMAKE_SOURCE_DIR}")
string(REGEX REPLACE "/$" "" relative_source "${relative_source}")
set_property(GLOBAL PROPERTY RULE_LAUNCH_COMPILE
             "${CMAKE_SOURCE_DIR}/cmake/relative ${CMAKE_SOURCE_DIR} ${relative_source}")
# Always ask for colours: on a terminal and under ccache the compiler gets that option anyway. Ninja strips them.
add_library(orvane_release_flags INTERFACE)
target_compile_options(orvane_release_flags INTERFACE
  $<$<COMPILE_LANGUAGE:C,CXX>:-ffile-compilation-dir=. -ffile-prefix-map=${relative_source}=. -fcolor-diagnostics>)
# Each file contains the runtime, so a host needs nothing but the DLL.
target_link_options(orvane_release_flags INTERFACE
  -static -Wl,--gc-sections -Wl,--no-insert-timestamp -Wl,--dynamicbase -Wl,--high-entropy-va -Wl,--nxcompat)

# orvane_finish(TARGET FILE): links in the build folder, then puts a stripped copy into the output folder, with its
# symbols in FILE.pdb beside it. Stripping removes the symbols of the runtime's objects, which are in a useless format.
function(orvane_finish target file)
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/linked" ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/linked")
  target_link_options(${target} PRIVATE -Wl,--pdb=${relative_out}/${file}.pdb -Wl,-Xlink=-pdbaltpath:%_PDB%
                                        -Wl,-Xlink=-pdbsourcepath:.)
  file(MAKE_DIRECTORY "${ORVANE_OUT}")
  add_custom_command(TARGET ${target} POST_BUILD VERBATIM BYPRODUCTS "${ORVANE_OUT}/${file}"
    COMMAND llvm-strip --strip-all -o "${ORVANE_OUT}/${file}" $<TARGET_FILE:${target}>)
endfunction()

# Gives `target` a version resource.
function(orvane_version target file type description)
  set(resource "${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc")
  configure_file(src/api/version.rc.in "${resource}" @ONLY)
  target_sources(${target} PRIVATE "${resource}")
endfunction()

# Finishes the files that were built, and lists what the package contains.
function(orvane_release)
  set(definitions src/api/orvane_mcp.def)
  set_target_properties(orvane_mcp PROPERTIES PREFIX "" LINK_DEPENDS "${CMAKE_SOURCE_DIR}/${definitions}")
  target_link_options(orvane_mcp PRIVATE ${relative_source}/${definitions})
  orvane_version(orvane_mcp orvane_mcp.dll VFT_DLL "Orvane MCP library")
  orvane_version(launcher orvane_mcp.exe VFT_APP "Orvane MCP server")
  # Not for the tests: clang's symbols for an emulated thread-local variable refer to something that doesn't exist.
  foreach(target orvane_core launcher viewer)
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:C,CXX>:-g -gcodeview>)
  endforeach()
  orvane_finish(orvane_mcp orvane_mcp.dll)
  orvane_finish(launcher orvane_mcp.exe)
  orvane_finish(viewer Orvane.exe)

  # The import library for Microsoft's linker. GNU's linker uses the one that lld writes.
  set(import_library "${CMAKE_BINARY_DIR}/linked/orvane_mcp.lib")
  add_custom_command(OUTPUT "${import_library}" DEPENDS ${definitions} WORKING_DIRECTORY "${CMAKE_SOURCE_DIR}" VERBATIM
    COMMAND llvm-dlltool -m i386:x86-64 -D orvane_mcp.dll -d ${definitions} -l "${import_library}")
  add_custom_target(msvc_import_library ALL DEPENDS "${import_library}")

  include(CMakePackageConfigHelpers)
  set(config_version "${CMAKE_CURRENT_BINARY_DIR}/OrvaneMcpConfigVersion.cmake")
  write_basic_package_version_file("${config_version}" COMPATIBILITY SameMinorVersion)
  install(FILES cmake/OrvaneMcpConfig.cmake "${config_version}" DESTINATION lib/cmake/OrvaneMcp)
  install(PROGRAMS "${ORVANE_OUT}/orvane_mcp.dll" "${ORVANE_OUT}/orvane_mcp.exe" DESTINATION bin)
  install(FILES "${ORVANE_OUT}/orvane_mcp.dll.pdb" "${ORVANE_OUT}/orvane_mcp.exe.pdb" DESTINATION symbols)
  install(FILES ${definitions} "${import_library}" "${CMAKE_BINARY_DIR}/linked/liborvane_mcp.dll.a" DESTINATION lib)
  install(FILES src/api/exports.h DESTINATION include/orvane_mcp)
  install(DIRECTORY docs DESTINATION . FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN "*.svg")
  install(DIRECTORY examples DESTINATION . PATTERN build EXCLUDE)
  configure_file(cmake/package-readme.txt.in package-readme.txt @ONLY)
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/package-readme.txt" DESTINATION . RENAME README)
  install(FILES CHANGELOG.md SECURITY.md "${CMAKE_CURRENT_BINARY_DIR}/NOTICE" DESTINATION .)

  # out/NAME-win64.zip for vendors of viewers, unpacked in out/package; out/NAME.mcpb for Claude Desktop, unpacked in
  # out/bundle.
  set(name "orvane-mcp-${PROJECT_VERSION}")
  set(out "${CMAKE_SOURCE_DIR}/out")
  set(root "${out}/package/${name}-win64")
  set(scripts "${CMAKE_SOURCE_DIR}/cmake")
  set(manifest "${out}/bundle/manifest.json")
  add_custom_target(package_zip VERBATIM DEPENDS orvane_mcp launcher msvc_import_library
    COMMAND ${CMAKE_COMMAND} -E rm -rf "${out}/package" "${out}/bundle"
    COMMAND ${CMAKE_COMMAND} -DOUTPUT=${CMAKE_CURRENT_BINARY_DIR}/NOTICE -P "${scripts}/notice.cmake"
    COMMAND ${CMAKE_COMMAND} --install "${CMAKE_BINARY_DIR}" --prefix "${root}"
    COMMAND python3 "${scripts}/zip.py" "${out}/package" "${out}/${name}-win64.zip"
    COMMAND ${CMAKE_COMMAND} -E copy_directory "${root}/bin" "${out}/bundle/server"
    COMMAND ${CMAKE_COMMAND} -E copy "${root}/NOTICE" "${CMAKE_SOURCE_DIR}/launcher/icon.png" "${out}/bundle"
    COMMAND python3 "${scripts}/bundle_manifest.py" ${PROJECT_VERSION} "${root}/docs/tools.md" "${manifest}"
    COMMAND python3 "${scripts}/zip.py" "${out}/bundle" "${out}/${name}.mcpb")
endfunction()
