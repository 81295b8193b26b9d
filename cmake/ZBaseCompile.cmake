# zbase_compile(target): the warnings and sanitizers that every target of this tree is built with.
function(zbase_compile target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow -Werror)
    if(ZBASE_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=${ZBASE_SANITIZE} -fno-sanitize-recover=all
                                                 -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${ZBASE_SANITIZE})
    endif()
endfunction()
