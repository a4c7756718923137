# Writes the man page that a program prints on standard output:
#   cmake -DPROGRAM=<program> [-DARGS=<arguments>] -DPAGE=<file> -P kavri_man_page.cmake
get_filename_component(dir ${PAGE} DIRECTORY)
file(MAKE_DIRECTORY ${dir})
execute_process(COMMAND ${PROGRAM} ${ARGS} OUTPUT_FILE ${PAGE} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  file(REMOVE ${PAGE})
  message(FATAL_ERROR "${PROGRAM} ${ARGS} did not print a man page (status ${status})")
endif()
