# cmake -DPROGRAM=... -DPAGE=... -P: fails unless the page holds exactly what the program prints.
execute_process(COMMAND ${PROGRAM} OUTPUT_VARIABLE printed RESULT_VARIABLE failed)
file(READ ${PAGE} page)
if(failed OR NOT printed STREQUAL page)
  message(FATAL_ERROR "${PAGE} is out of date: write it anew with ${PROGRAM} > ${PAGE}")
endif()
