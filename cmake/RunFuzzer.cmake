# Runs one libFuzzer target for a bounded time. The checked-in corpus is copied to a work folder
# first, so that what the fuzzer finds never changes the source tree.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
file(GLOB seeds ${CORPUS}/*)
if(seeds)
  file(COPY ${seeds} DESTINATION ${WORK})
endif()
execute_process(
  COMMAND ${FUZZER} -max_total_time=${SECONDS} -timeout=10 -rss_limit_mb=2048
          -max_len=65536 -print_final_stats=1 ${WORK}
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${FUZZER} failed with ${rc}")
endif()
