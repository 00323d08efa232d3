# What goes where. The component "program" holds what its users need, "development" what those need
# who build on the library. BADGEMINT_COMPRESS_MANUALS is for packages, which want them compressed.
include(CMakePackageConfigHelpers)

option(BADGEMINT_COMPRESS_MANUALS "Install the manuals compressed" OFF)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/badgemint)

install(TARGETS badgemint EXPORT badgemintTargets
        RUNTIME COMPONENT program
        LIBRARY COMPONENT program NAMELINK_COMPONENT development
        ARCHIVE COMPONENT development)
install(TARGETS badgemint_program RUNTIME COMPONENT program)

# badgemint.h is for programs in any language; the other headers keep their folders, as they include
# each other by them.
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/badgemint)
install(FILES src/tools/badgemint.h DESTINATION ${header_dir} COMPONENT development)
foreach(folder support formats cardsets site carddb inputcards)
  install(DIRECTORY src/${folder} DESTINATION ${header_dir} COMPONENT development
          FILES_MATCHING PATTERN "*.h")
endforeach()

install(EXPORT badgemintTargets NAMESPACE badgemint:: DESTINATION ${package_dir}
        COMPONENT development)
configure_package_config_file(cmake/badgemintConfig.cmake.in badgemintConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(badgemintConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/badgemintConfig.cmake
              ${PROJECT_BINARY_DIR}/badgemintConfigVersion.cmake
        DESTINATION ${package_dir} COMPONENT development)

# The pkg-config file finds its tree from where it stands, wherever that was installed or moved to.
file(RELATIVE_PATH BADGEMINT_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
     ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/badgemint.pc.in badgemint.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/badgemint.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

# install_documents(DESTINATION COMPONENT FILE...): as they are, or compressed without a time stamp.
function(install_documents destination component)
  if(BADGEMINT_COMPRESS_MANUALS)
    find_program(GZIP_PROGRAM gzip REQUIRED)
    foreach(file ${ARGN})
      get_filename_component(name ${file} NAME)
      set(compressed ${PROJECT_BINARY_DIR}/documents/${component}/${name}.gz)
      add_custom_command(OUTPUT ${compressed} DEPENDS ${PROJECT_SOURCE_DIR}/${file} VERBATIM
                         COMMAND sh -c "'${GZIP_PROGRAM}' -9nc <\"$1\" >\"$2\"" sh
                                 ${PROJECT_SOURCE_DIR}/${file} ${compressed})
      list(APPEND documents ${compressed})
    endforeach()
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/documents/${component})
    string(MD5 id "${destination} ${component}")
    add_custom_target(documents-${id} ALL DEPENDS ${documents})
  else()
    set(documents ${ARGN})
  endif()
  install(FILES ${documents} DESTINATION ${destination} COMPONENT ${component})
endfunction()

install_documents(${CMAKE_INSTALL_MANDIR}/man1 program man/badgemint.1)
install_documents(${CMAKE_INSTALL_MANDIR}/man5 program man/badgemint-cards.5 man/badgemint-db.5
                  man/badgemint-formats.5)
install_documents(${CMAKE_INSTALL_MANDIR}/man3 development man/badgemint.3 man/badgemint-maintain.3)
