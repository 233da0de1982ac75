# kelvo_warnings(TARGET): the warnings that every target of this tree is clean under.
function(kelvo_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
                         $<$<BOOL:${KELVO_WERROR}>:-Werror>)
endfunction()
