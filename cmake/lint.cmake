# The linters as tests, one for each file, so that they run in parallel and a failure names its file.
orvane_test(format lint 60
            sh -c "git ls-files '*.cc' '*.h' '*.c' | xargs clang-format --dry-run --Werror")
foreach(source ${core} launcher/main.cc)
  cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY "${PROJECT_SOURCE_DIR}")
  cmake_path(RELATIVE_PATH source BASE_DIRECTORY "${PROJECT_SOURCE_DIR}")
  orvane_test(tidy.${source} lint 300 clang-tidy --quiet -p "${CMAKE_BINARY_DIR}" ${source})
endforeach()
