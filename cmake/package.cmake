# Two Debian packages: badgemint (the program and its manuals) and libbadgemint-dev. Made by
# `cmake --workflow --preset package`.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME badgemint)
set(CPACK_PACKAGE_VENDOR badgemint)
set(CPACK_PACKAGE_CONTACT "badgemint (no address yet) <none@badgemint.invalid>")
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
files, replaces its databases safely and answers questions about them.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libbadgemint-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS badgemint) # Its manuals point there.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION "libdevel\nMulti-Arch: same")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "The library of badgemint: it builds, dumps and maintains card databases
and computes the bit patterns of cards. This package has the static library,
its headers, their manuals, and what CMake and pkg-config need to find it.")

set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/cpack.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/cpack-trees.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/cpack-members.cmake)
set(CPACK_BADGEMINT_SHARED ${BUILD_SHARED_LIBS})
set(CPACK_BADGEMINT_ADMIN FALSE)
if(TARGET badgemint_admin_program)
  set(CPACK_BADGEMINT_ADMIN TRUE)
endif()
include(CPack)
