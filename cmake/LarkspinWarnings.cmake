# Warning set shared by every target the project compiles itself.
function(larkspin_set_warnings target)
  target_compile_options(${target} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Wshadow -Wfloat-conversion
      -Wnon-virtual-dtor -Woverloaded-virtual>
    $<$<COMPILE_LANGUAGE:C>:-Wall -Wextra -Wpedantic -Wshadow>)
  if(LARKSPIN_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
