include(GoogleTest)

# usage: discover_tests(TARGET)
#
# Makes a test of each one in the program. The program is asked for them when the tests are run;
# under Wine, which may have to be started for that, an answer can take a while.
#
# Starting and ending a sanitized program that records coverage takes longer than most tests, so
# these share a few runs of it. A run in which a test was skipped counts as skipped.
function(discover_tests target)
    if(NOT CLIENT_IO_SANITIZE)
        gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120)
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
