# cpack reads this before it makes packages. It refuses to make incomplete ones.
cmake_policy(VERSION 3.25)

if(CPACK_BADGEMINT_SHARED)
  message(FATAL_ERROR "The Debian packages hold the static library: configure with -DBUILD_SHARED_LIBS=OFF.")
endif()
if(NOT CPACK_BADGEMINT_ADMIN)
  message(FATAL_ERROR "The package badgemint holds badgemint-admin: configure with -DBADGEMINT_ADMIN=ON, "
                      "after installing what it needs.")
endif()
foreach(program dpkg-shlibdeps file) # Without them cpack makes packages that depend on nothing, or fails later.
  find_program(path_of_${program} ${program})
  if(NOT path_of_${program})
    message(FATAL_ERROR "Packages cannot be made without the program ${program}: "
                        "install the Debian packages dpkg-dev and file.")
  endif()
endforeach()

# Packages of one source are the same, byte for byte, whenever they are made: their date is the version's.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/../CHANGELOG.md date REGEX "^## ${CPACK_PACKAGE_VERSION}, ")
  if(NOT date)
    message(FATAL_ERROR "CHANGELOG.md has no line \"## ${CPACK_PACKAGE_VERSION}, YEAR-MONTH-DAY\".")
  endif()
  string(REGEX REPLACE ".*, " "" date ${date})
  execute_process(COMMAND date -u -d "${date} 12:00" +%s OUTPUT_VARIABLE date
                  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(ENV{SOURCE_DATE_EPOCH} ${date})
endif()
