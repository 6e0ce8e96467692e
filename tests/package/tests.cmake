# The package: what is in its files, whether another folder gives the same bytes, and whether a host can be built from it
# alone, by either toolchain.
set(name "orvane-mcp-${PROJECT_VERSION}")
set(package "${PROJECT_SOURCE_DIR}/out/package/${name}-win64")
set(again "${CMAKE_BINARY_DIR}/again")
set(check python3 "${PROJECT_SOURCE_DIR}/tests/package/check.py")

orvane_test(package.zip package 300 ${CMAKE_COMMAND} --build "${CMAKE_BINARY_DIR}" --target package_zip)
# Without a compiler cache, which would hand out what it kept of the first folder.
orvane_test(package.zip_elsewhere package 900 env CCACHE_DISABLE=1 sh -c "rm -rf '${again}' && mkdir '${again}' &&
  tar c --exclude=./build --exclude=./out --exclude=./.git --exclude=node_modules . | tar x -C '${again}' &&
  cd '${again}' && cmake --preset windows -DORVANE_TESTS=OFF && cmake --build --preset windows --target package_zip")
orvane_test(package.hosts package 120 tests/package/build_hosts "${package}" "${CMAKE_BINARY_DIR}/hosts"
            "${PROJECT_SOURCE_DIR}/cmake/windows.cmake")
orvane_test(package.files package 60 ${check} files "${package}" ${PROJECT_VERSION})
orvane_test(package.content package 60 ${check} content "${package}" "${PROJECT_SOURCE_DIR}/out/bundle")
orvane_test(package.same_elsewhere package 60 sh -c
  "cmp out/${name}-win64.zip '${again}/out/${name}-win64.zip' && cmp out/${name}.mcpb '${again}/out/${name}.mcpb'")
foreach(toolchain cmake gnu gnu_cpp msvc)
  orvane_test(package.host.${toolchain} package 120 ${check} host "${package}" "${CMAKE_BINARY_DIR}/hosts/${toolchain}")
  set_tests_properties(package.host.${toolchain} PROPERTIES FIXTURES_REQUIRED package_hosts)
endforeach()
# Nothing of these runs under Wine.
set_tests_properties(package.zip package.zip_elsewhere package.hosts package.files package.content
                     package.same_elsewhere PROPERTIES RESOURCE_LOCK "")
set_tests_properties(package.zip PROPERTIES FIXTURES_SETUP package_zip)
set_tests_properties(package.zip_elsewhere PROPERTIES FIXTURES_SETUP package_elsewhere)
set_tests_properties(package.hosts PROPERTIES FIXTURES_REQUIRED package_zip FIXTURES_SETUP package_hosts)
set_tests_properties(package.files package.content PROPERTIES FIXTURES_REQUIRED package_zip)
set_tests_properties(package.same_elsewhere PROPERTIES FIXTURES_REQUIRED "package_zip;package_elsewhere")

# The Claude Desktop bundle's manifest, in the hands of the bundle's own tool.
orvane_test(clients.bundle clients 120 tests/clients/node_modules/.bin/mcpb validate out/bundle/manifest.json)
set_tests_properties(clients.bundle PROPERTIES FIXTURES_REQUIRED "clients;package_zip")
