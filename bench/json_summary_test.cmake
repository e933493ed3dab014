# Runs a few benchmarks briefly, twice each, and checks that the ratios come out per repetition
# in the program's own output (also with aggregates only) and from the summary of its JSON.
# The JSON goes into a folder of this run's own under the test temp folder (as GoogleTest finds
# it), removed on every way out.
if(NOT "$ENV{TEST_TMPDIR}" STREQUAL "")
  set(tmp "$ENV{TEST_TMPDIR}")
elseif(NOT "$ENV{TMPDIR}" STREQUAL "")
  set(tmp "$ENV{TMPDIR}")
else()
  set(tmp /tmp)
endif()
execute_process(COMMAND mktemp -d "${tmp}/zyncam-bench.XXXXXX"
  OUTPUT_VARIABLE scratch OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "no scratch folder under ${tmp}")
endif()
set(OUT "${scratch}/run.json")

function(fail text)
  file(REMOVE_RECURSE "${scratch}")
  message(FATAL_ERROR "${text}")
endfunction()

set(filter "^BM_(CacheHit|HitOverFloor)/1$|^BM_StraddleOverAligned$")
set(common --benchmark_filter=${filter} --benchmark_min_time=0.01 --benchmark_repetitions=2)

function(expect text pattern what)
  if(NOT text MATCHES "${pattern}")
    fail("${what}: no match for '${pattern}' in:\n${text}")
  endif()
endfunction()

set(perRepetition "hit/floor 1 +[0-9.]+ [0-9.]+ \\| median [0-9.]+ min [0-9.]+ max [0-9.]+")
set(straddle "straddle/aligned +[0-9.]+ [0-9.]+ \\| median")

execute_process(COMMAND ${BENCHMARKS} ${common} --benchmark_report_aggregates_only=true
  OUTPUT_VARIABLE console RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  fail("gralloc_benchmarks failed (${status}):\n${console}")
endif()
expect("${console}" "${perRepetition}" "aggregates-only console run")
expect("${console}" "${straddle}" "aggregates-only console run")
expect("${console}" "BM_HitOverFloor/1_median" "aggregates-only console run")
if(console MATCHES "BM_HitOverFloor/1 ")
  fail("aggregates-only run printed a repetition:\n${console}")
endif()

execute_process(COMMAND ${BENCHMARKS} ${common} --benchmark_format=json
  OUTPUT_FILE ${OUT} ERROR_VARIABLE stderr RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  fail("gralloc_benchmarks --benchmark_format=json failed (${status}):\n${stderr}")
endif()
expect("${stderr}" "${perRepetition}" "JSON run, ratios on stderr")

execute_process(COMMAND ${PYTHON} ${SUMMARIZE} ${OUT}
  OUTPUT_VARIABLE summary ERROR_VARIABLE error RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  fail("summarize.py failed (${status}):\n${error}")
endif()
expect("${summary}" "${perRepetition}" "summary")
expect("${summary}" "${straddle}" "summary")
expect("${summary}" "BM_CacheHit/1 +2 .*allocs_per_hit=0" "summary")

file(REMOVE_RECURSE "${scratch}")
