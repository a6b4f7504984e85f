# Runs the fuzzer FUZZER for SECONDS on the corpus WORK/corpus and the seeds
# SEEDS; a finding is written to WORK as session-crash-... and fails the run.
file(MAKE_DIRECTORY ${WORK}/corpus)
execute_process(
  COMMAND ${FUZZER} -max_total_time=${SECONDS} -timeout=10 -print_final_stats=1
          -artifact_prefix=${WORK}/session- ${WORK}/corpus ${SEEDS}
  ERROR_FILE ${WORK}/session.log RESULT_VARIABLE result)
file(STRINGS ${WORK}/session.log log)
if(NOT result EQUAL 0)
  list(LENGTH log lines)
  set(first 0)
  if(lines GREATER 40)
    math(EXPR first "${lines} - 40")
  endif()
  list(SUBLIST log ${first} -1 tail)
  list(JOIN tail "\n" tail)
  message(FATAL_ERROR "${tail}\nsession_fuzzer found a fault (exit ${result}): see ${WORK}")
endif()
string(REGEX MATCHALL "cov: [0-9]+ ft: [0-9]+" coverage "${log}")
list(GET coverage -1 coverage)
string(REGEX MATCH "number_of_executed_units: [0-9]+" runs "${log}")
string(REGEX MATCH "[0-9]+$" runs "${runs}")
message("session: ${coverage}, ${runs} runs")
