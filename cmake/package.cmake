# Two Debian packages: badgemint (the program and its manuals) and libbadgemint-dev. Made by
# `cmake --workflow --preset package`.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME badgemint)
set(CPACK_PACKAGE_VENDOR badgemint)
set(CPACK_PACKAGE_CONTACT "badgemint maintainers <maintainers@badgemint.invalid>")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL program development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME badgemint)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION "utils\nMulti-Arch: foreign") # CPack has no variable for this field.
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_PROGRAM_DESCRIPTION
    "badgemint makes the two databases that the door controllers of an access
control site read, from one text file of card holders. It encodes each card
number as the card formats of the site lay it out, and finds duplicate cards,
PINs and holders before anything is written. badgemint-admin checks a site's
files for errors and for what a build would take without a word.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libbadgemint-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION "libdevel\nMulti-Arch: same")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "The library behind badgemint: it builds, dumps and maintains card databases
and computes the bit patterns of cards. This package has the static library,
its headers, their manuals, and what CMake and pkg-config need to find it.")

if(BADGEMINT_COMPRESS_MANUALS) # What only a package needs.
  foreach(pair "program badgemint" "development libbadgemint-dev")
    separate_arguments(pair)
    list(POP_FRONT pair component package)
    set(documentation ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package})
    install_documents(${documentation} ${component} packaging/changelog)
    install(FILES packaging/copyright DESTINATION ${documentation} COMPONENT ${component})
  endforeach()
  # Packages of one source are the same, byte for byte, whenever they are made.
  file(STRINGS packaging/changelog date REGEX "^ -- " LIMIT_COUNT 1)
  string(REGEX REPLACE ".*>  " "" date ${date})
  execute_process(COMMAND date -d ${date} +%s OUTPUT_VARIABLE CPACK_BADGEMINT_DATE
                  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endif()

set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/cpack.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/cpack-prefix.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/cpack-members.cmake)
set(CPACK_BADGEMINT_SHARED ${BUILD_SHARED_LIBS})
include(CPack)
