include(GoogleTest)

# usage: discover_tests(TARGET)
#
# Makes a test of each one in the program, which is asked for them when the tests are run.
#
# Starting a program takes longer than most tests where it is sanitized and records coverage, or runs
# under Wine. There the tests share a few runs of it; a run in which one was skipped counts as
# skipped.
function(discover_tests target)
    if(NOT CLIENT_IO_SANITIZE AND NOT CMAKE_CROSSCOMPILING)
        gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST)
        return()
    endif()
    set(runs 8)
    foreach(run RANGE 1 ${runs})
        math(EXPR index "${run} - 1")
        set(name ${target}.${run}_of_${runs})
        add_test(NAME ${name} COMMAND ${target})
        set_tests_properties(${name} PROPERTIES
            ENVIRONMENT "GTEST_TOTAL_SHARDS=${runs};GTEST_SHARD_INDEX=${index}"
            SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]"
            TIMEOUT 900)
    endforeach()
endfunction()
