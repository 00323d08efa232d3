# Two Debian packages: badgemint (the program and its manuals) and libbadgemint-dev. Made by
# `cmake --workflow --preset package`.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME badgemint)
set(CPACK_PACKAGE_VENDOR badgemint)
set(CPACK_PACKAGE_CONTACT "badgemint maintainers <maintainers@badgemint.invalid>")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
    GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL program development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME badgemint)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_PROGRAM_DESCRIPTION
    "badgemint makes the two databases that the door controllers of an access
control site read, from one text file of card holders. It encodes each card
number as the card formats of the site lay it out, and finds duplicate cards,
PINs and holders before anything is written.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libbadgemint-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
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
endif()

include(CPack)
