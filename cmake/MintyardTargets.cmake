# Helpers that every module uses to declare its tests, benchmarks and fuzz targets, so that the
# module files stay short and all of them are built the same way.

include(GoogleTest)

if(MINTYARD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "MINTYARD_FUZZ needs clang (CC=clang CXX=clang++)")
  endif()
  # Everything in the fuzz tree is instrumented; only the fuzz targets link libFuzzer's main.
  add_compile_options(-fsanitize=address,undefined -fsanitize=fuzzer-no-link -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
  set(MINTYARD_LIBRARY_TYPE STATIC)
  set(MINTYARD_TESTS OFF)
  set(MINTYARD_BENCH OFF)
else()
  set(MINTYARD_LIBRARY_TYPE SHARED)
  if(MINTYARD_TESTS)
    find_package(GTest REQUIRED)
  endif()
  if(MINTYARD_BENCH)
    find_package(benchmark REQUIRED)
  endif()
endif()

# mintyard_test(<name> [QT | GL] SOURCES <files...> LIBS <targets...> [LABELS <labels...>])
# One GoogleTest executable; each test case becomes a CTest test, discovered when CTest runs.
# With QT the executable gets a main that makes a QApplication on the offscreen platform
# (unless QT_QPA_PLATFORM says otherwise), for widget tests. GL is QT for tests that draw with
# OpenGL: discovery and every test run under a virtual display of their own (Xvfb, Qt on xcb).
function(mintyard_test name)
  if(NOT MINTYARD_TESTS)
    return()
  endif()
  cmake_parse_arguments(ARG "QT;GL" "" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  if(ARG_QT OR ARG_GL)
    find_package(Qt5 REQUIRED COMPONENTS Widgets Test)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} mintyard_testsupport mintyard_testsupport_qtmain
      GTest::gtest Qt5::Widgets Qt5::Test)
  else()
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} mintyard_testsupport GTest::gtest GTest::gtest_main)
  endif()
  target_compile_definitions(${name} PRIVATE MINTYARD_SOURCE_DIR="${PROJECT_SOURCE_DIR}" MINTYARD_BINARY_DIR="${CMAKE_BINARY_DIR}")
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  if(ARG_GL)
    set_target_properties(${name} PROPERTIES
      CROSSCOMPILING_EMULATOR ${PROJECT_SOURCE_DIR}/platform/testsupport/run-with-display.sh)
    set(properties LABELS "gl;${ARG_LABELS}")
  else()
    set(properties ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
    if(ARG_LABELS)
      list(APPEND properties LABELS "${ARG_LABELS}")
    endif()
  endif()
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST
    WORKING_DIRECTORY ${CMAKE_BINARY_DIR}
    PROPERTIES ${properties})
endfunction()

# mintyard_bench(<name> SOURCES <files...> LIBS <targets...>)
function(mintyard_bench name)
  if(NOT MINTYARD_BENCH)
    return()
  endif()
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} benchmark::benchmark)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench)
endfunction()

# mintyard_fuzzer(<name> SOURCES <files...> LIBS <targets...> CORPUS <dir> [SECONDS <n>])
# A libFuzzer target, and a test that runs it for a bounded time over a copy of its corpus.
function(mintyard_fuzzer name)
  if(NOT MINTYARD_FUZZ)
    return()
  endif()
  cmake_parse_arguments(ARG "" "CORPUS;SECONDS" "SOURCES;LIBS" ${ARGN})
  if(NOT ARG_SECONDS)
    set(ARG_SECONDS 30)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS})
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzz)
  set(work ${CMAKE_BINARY_DIR}/fuzz/${name}.corpus)
  add_test(NAME ${name}
    COMMAND ${CMAKE_COMMAND} -DFUZZER=$<TARGET_FILE:${name}> -DCORPUS=${ARG_CORPUS}
            -DWORK=${work} -DSECONDS=${ARG_SECONDS}
            -P ${CMAKE_SOURCE_DIR}/cmake/RunFuzzer.cmake)
  set_tests_properties(${name} PROPERTIES LABELS fuzz TIMEOUT 600)
endfunction()
