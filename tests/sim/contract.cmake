# tarn-sim as its pages describe it: one CTest test a test of contract_sim_test.py, found by its name. Natively only: the
# daemon is the machine's own program.
if(NOT TARGET tarn-sim OR NOT TARGET tarn-event OR NOT TARGET gatewayd OR CMAKE_CROSSCOMPILING)
  return()
endif()
find_package(Python3 3.9 COMPONENTS Interpreter)
if(NOT Python3_FOUND)
  return()
endif()

# Never instrumented, as the shim before it.
add_executable(sim_caller ${CMAKE_CURRENT_LIST_DIR}/caller.c)
target_compile_options(sim_caller PRIVATE ${tarn_warnings} -U_FORTIFY_SOURCE -fno-sanitize=all)
target_link_options(sim_caller PRIVATE -pthread -fno-sanitize=all)

set(script ${CMAKE_CURRENT_LIST_DIR}/contract_sim_test.py)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${script})
file(STRINGS ${script} lines REGEX "^class [A-Z]|^  def test_")
foreach(line ${lines})
  if(line MATCHES "^class ([A-Za-z0-9]+)")
    set(suite ${CMAKE_MATCH_1})
  elseif(line MATCHES "def (test_[a-z0-9_]+)")
    set(name sim/contract/${suite}.${CMAKE_MATCH_1})
    add_test(NAME ${name} COMMAND ${Python3_EXECUTABLE} ${script} ${suite}.${CMAKE_MATCH_1} --
                                  $<TARGET_FILE:tarn-sim> $<TARGET_FILE:sim_caller> $<TARGET_FILE:tarn-event>
                                  $<TARGET_FILE:gatewayd>)
    set_tests_properties(${name} PROPERTIES TIMEOUT ${test_hang_limit_s} LABELS sim SKIP_RETURN_CODE 77)
  endif()
endforeach()
