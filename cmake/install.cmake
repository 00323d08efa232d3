# What goes where. The component "program" holds what its users need, "development" what those need
# who build on the library. BADGEMINT_COMPRESS_MANUALS is for packages, which want them compressed.
include(CMakePackageConfigHelpers)

option(BADGEMINT_COMPRESS_MANUALS "Install the manuals compressed" OFF)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/badgemint)

# install_folders(COMPONENT FOLDER...): makes those of the folders, and of the folders above them, that
# are missing, open to everyone. CMake would make them as the umask has it.
function(install_folders component)
  install(CODE "
    function(make_folder path)
      if(NOT EXISTS \"\${path}\")
        cmake_path(GET path PARENT_PATH parent)
        make_folder(\"\${parent}\")
        file(MAKE_DIRECTORY \"\${path}\")
        file(CHMOD \"\${path}\" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
             GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
      endif()
    endfunction()
    foreach(folder ${ARGN})
      cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
      make_folder(\"\$ENV{DESTDIR}\${folder}\")
    endforeach()" COMPONENT ${component})
endfunction()

set(examples_dir ${CMAKE_INSTALL_DOCDIR}/examples)
install_folders(program ${CMAKE_INSTALL_BINDIR} ${examples_dir})
install_folders(development ${CMAKE_INSTALL_INCLUDEDIR} ${package_dir} ${CMAKE_INSTALL_LIBDIR}/pkgconfig
                ${examples_dir})
if(BUILD_SHARED_LIBS)
  install_folders(program ${CMAKE_INSTALL_LIBDIR})
endif()

install(TARGETS badgemint EXPORT badgemintTargets
        RUNTIME COMPONENT program
        LIBRARY COMPONENT program NAMELINK_COMPONENT development
        ARCHIVE COMPONENT development)
install(TARGETS badgemint_program RUNTIME COMPONENT program)
set(program_manuals man/badgemint.1)
if(TARGET badgemint_admin_program)
  install(TARGETS badgemint_admin_program RUNTIME COMPONENT program)
  list(APPEND program_manuals man/badgemint-admin.1)
endif()

install(DIRECTORY ${badgemint_include_dir}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT development)

install(EXPORT badgemintTargets NAMESPACE badgemint:: DESTINATION ${package_dir}
        COMPONENT development)
configure_package_config_file(cmake/badgemintConfig.cmake.in badgemintConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(badgemintConfigVersion.cmake COMPATIBILITY SameMajorVersion)
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
  install_folders(${component} ${destination})
  install(FILES ${documents} DESTINATION ${destination} COMPONENT ${component})
endfunction()

install_documents(${CMAKE_INSTALL_MANDIR}/man1 program ${program_manuals})
install_documents(${CMAKE_INSTALL_MANDIR}/man5 program man/badgemint-cards.5 man/badgemint-db.5
                  man/badgemint-formats.5)
install_documents(${CMAKE_INSTALL_MANDIR}/man3 development man/badgemint.3 man/badgemint-maintain.3)

install(FILES CHANGELOG.md SECURITY.md docs/results.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
        COMPONENT program)
install(PROGRAMS examples/csv-to-cards DESTINATION ${examples_dir} COMPONENT program)
install(DIRECTORY examples/site examples/mistakes DESTINATION ${examples_dir} COMPONENT program
        PATTERN make-formats EXCLUDE)
install(FILES examples/CMakeLists.txt examples/bitpattern.c examples/dump.c examples/maintain.cpp
        DESTINATION ${examples_dir} COMPONENT development)
