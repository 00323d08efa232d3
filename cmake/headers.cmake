# badgemint_public_headers(TARGET HEADER...): headers of src/ that other projects may include. In the
# build folder's include/, from where they are installed, they are <badgemint/carddb/identfile.h> and so
# on, and include each other by these names: a project may have its own support/result.h. badgemint.h,
# with the C functions, is next to that folder and includes none of them.
function(badgemint_public_headers target)
  set(include ${PROJECT_BINARY_DIR}/include)
  foreach(header ${ARGN})
    set(source ${CMAKE_CURRENT_SOURCE_DIR}/${header})
    set(public ${include}/badgemint/${header})
    if(header STREQUAL tools/badgemint.h)
      set(public ${include}/badgemint.h)
    endif()
    get_filename_component(folder ${public} DIRECTORY)
    file(MAKE_DIRECTORY ${folder})
    add_custom_command(OUTPUT ${public} DEPENDS ${source} VERBATIM
                       COMMAND sed "s|^#include \"\\(.*\\)\"|#include <badgemint/\\1>|" ${source} > ${public})
    list(APPEND headers ${public})
  endforeach()
  target_sources(${target} PUBLIC FILE_SET HEADERS BASE_DIRS ${include} FILES ${headers})
endfunction()
