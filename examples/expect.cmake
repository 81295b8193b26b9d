# cmake -DCOMMAND=LIST [-DTEXT=FILE] [-DREGEX=REGEX] -P expect.cmake: runs a program, which must exit with 0 and print
# exactly the content of the file, or match the expression.
execute_process(COMMAND ${COMMAND} OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "It ended with ${status}.\n${output}${errors}")
endif()
if(DEFINED TEXT)
    file(READ ${TEXT} expected)
    if(NOT output STREQUAL expected)
        message(FATAL_ERROR "It told:\n${output}\nand not:\n${expected}")
    endif()
elseif(NOT output MATCHES "${REGEX}")
    message(FATAL_ERROR "It told:\n${output}")
endif()
