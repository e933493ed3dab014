# Runs a few benchmarks briefly, twice each, and checks that the ratios come out per repetition
# in the program's own output (also with aggregates only) and from the summary of its JSON.
set(filter "^BM_(CacheHit|HitOverFloor)/1$|^BM_StraddleOverAligned$")
set(common --benchmark_filter=${filter} --benchmark_min_time=0.01 --benchmark_repetitions=2)

function(expect text pattern what)
  if(NOT text MATCHES "${pattern}")
    message(FATAL_ERROR "${what}: no match for '${pattern}' in:\n${text}")
  endif()
endfunction()

set(perRepetition "hit/floor 1 +[0-9.]+ [0-9.]+ \\| median [0-9.]+ min [0-9.]+ max [0-9.]+")
set(straddle "straddle/aligned +[0-9.]+ [0-9.]+ \\| median")

execute_process(COMMAND ${BENCHMARKS} ${common} --benchmark_report_aggregates_only=true
  OUTPUT_VARIABLE console RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "gralloc_benchmarks failed (${status}):\n${console}")
endif()
expect("${console}" "${perRepetition}" "aggregates-only console run")
expect("${console}" "${straddle}" "aggregates-only console run")
expect("${console}" "BM_HitOverFloor/1_median" "aggregates-only console run")
if(console MATCHES "BM_HitOverFloor/1 ")
  message(FATAL_ERROR "aggregates-only run printed a repetition:\n${console}")
endif()

execute_process(COMMAND ${BENCHMARKS} ${common} --benchmark_format=json
  OUTPUT_FILE ${OUT} ERROR_VARIABLE stderr RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "gralloc_benchmarks --benchmark_format=json failed (${status}):\n${stderr}")
endif()
expect("${stderr}" "${perRepetition}" "JSON run, ratios on stderr")

execute_process(COMMAND ${PYTHON} ${SUMMARIZE} ${OUT}
  OUTPUT_VARIABLE summary ERROR_VARIABLE error RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "summarize.py failed (${status}):\n${error}")
endif()
expect("${summary}" "${perRepetition}" "summary")
expect("${summary}" "${straddle}" "summary")
expect("${summary}" "BM_CacheHit/1 +2 .*allocs_per_hit=0" "summary")
