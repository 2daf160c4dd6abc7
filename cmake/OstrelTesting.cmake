# ostrel_add_tests(LABEL <label> LIBS <libs...> SOURCES <files...>)
# Builds one test executable per source file so that a crash in one file's
# cases cannot hide the results of another, and registers every GoogleTest
# case with CTest under the given label.
function(ostrel_add_tests)
  cmake_parse_arguments(ARG "" "LABEL" "LIBS;SOURCES" ${ARGN})
  if(NOT OSTREL_BUILD_TESTS)
    return()
  endif()
  foreach(src IN LISTS ARG_SOURCES)
    get_filename_component(name ${src} NAME_WE)
    set(target ${ARG_LABEL}_${name})
    add_executable(${target} ${src})
    target_link_libraries(${target} PRIVATE ${ARG_LIBS} rapidcheck rapidcheck_gtest GTest::gtest GTest::gtest_main Threads::Threads)
    set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    gtest_discover_tests(${target}
      PROPERTIES LABELS ${ARG_LABEL} TIMEOUT 60
      DISCOVERY_TIMEOUT 30)
  endforeach()
endfunction()
