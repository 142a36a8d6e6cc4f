# Run by ctest before it tests: makes one test of every suite of a GoogleTest program. Starting the
# program, with the hundred libraries below it, takes longer than most of its cases do.
#
# kestrel_add_suites(<program> <prefix> <filter> [EACH_CASE] [PROPERTIES <name> <value>...])
#
# Cases that the filter of GoogleTest leaves out are left out. EACH_CASE makes a test of every case
# instead, for programs whose cases take seconds.
function(kestrel_add_suites program prefix filter)
  cmake_parse_arguments(PARSE_ARGV 3 arg "EACH_CASE" "" "PROPERTIES")
  if(NOT EXISTS "${program}")
    add_test("${prefix}NOT_BUILT" "${program}")
    return()
  endif()
  execute_process(COMMAND "${program}" --gtest_list_tests "--gtest_filter=${filter}"
    OUTPUT_VARIABLE listed RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${program} does not list its tests: ${status}")
  endif()

  # A suite's line ends with a dot, those of its cases are indented; "  # " begins a remark.
  string(REPLACE ";" "," listed "${listed}")
  string(REPLACE "\n" ";" lines "${listed}")
  set(tests)
  foreach(line IN LISTS lines)
    string(REGEX REPLACE " +# .*" "" line "${line}")
    if(line MATCHES "^[^ ].*\\.$")
      string(REGEX REPLACE "\\.$" "" suite "${line}")
      set(test "${suite}")
    elseif(line MATCHES "^  (.+)$")
      set(case "${suite}.${CMAKE_MATCH_1}")
      if(arg_EACH_CASE)
        set(test "${case}")
      endif()
      list(FIND tests "${test}" known)
      if(known EQUAL -1)
        list(APPEND tests "${test}")
        set(cases)
      endif()
      list(APPEND cases "${case}")
      string(REPLACE ";" ":" filter_${test} "${cases}")
    endif()
  endforeach()

  # A test is told as skipped where a case was, and none failed: then the names of the skipped ones
  # are the last lines.
  foreach(test IN LISTS tests)
    add_test("${prefix}${test}" "${program}" "--gtest_filter=${filter_${test}}")
    set_tests_properties("${prefix}${test}" PROPERTIES
      SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\] [^\n]*\n*$" ${arg_PROPERTIES})
  endforeach()
endfunction()
