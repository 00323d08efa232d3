# The flags with which a distribution builds its packages, added to the user's own flags: the program
# reads files that anyone may have written, and writes files that open doors. Fortification and the
# library's assertions are not used in builds with tests, whose sweeps replace system calls by their
# names; there the user's own flags do not fortify either.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)

check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection)
  string(MAKE_C_IDENTIFIER "BADGEMINT_HAS${flag}" supported)
  check_cxx_compiler_flag("${flag} -Werror" ${supported}) # Not every processor supports all of them.
  if(${supported})
    add_compile_options(${flag})
  endif()
endforeach()
add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)

# The program is the same in whatever folder it is built.
add_compile_options("-ffile-prefix-map=${PROJECT_SOURCE_DIR}=." "-ffile-prefix-map=${PROJECT_BINARY_DIR}=build")

# For the library and the programs. The build type of a distribution, such as None, is optimised by the
# user's flags. Some compilers define _FORTIFY_SOURCE already.
set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
if(CMAKE_CXX_FLAGS MATCHES "-O([^0]|$)")
  set(optimised 1)
endif()
function(badgemint_hardening target)
  target_compile_options(${target} PRIVATE -U_FORTIFY_SOURCE)
  if(BADGEMINT_FORTIFY)
    target_compile_options(${target} PRIVATE -D_GLIBCXX_ASSERTIONS $<${optimised}:-D_FORTIFY_SOURCE=3>)
  endif()
endfunction()
