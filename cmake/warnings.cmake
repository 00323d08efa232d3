# The warning set every target of the project is built with. Warnings are errors only where
# CMAKE_COMPILE_WARNING_AS_ERROR is set, as in CI; never for those who build a release.
function(badgemint_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
                                           -Wold-style-cast -Wformat=2)
endfunction()
