# What goes where. The component "program" holds what its users need, "development" what those need
# who build on the library.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/badgemint)
set(examples_dir ${CMAKE_INSTALL_DOCDIR}/examples)

# install_folders(COMPONENT FOLDER...): makes folders that are missing, open to everyone. CMake would
# make them as the umask has it.
function(install_folders component)
  install(CODE "
    foreach(folder ${ARGN})
      cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
      execute_process(COMMAND sh -c \"umask 022 && mkdir -p \\\"$0\\\"\" \"\$ENV{DESTDIR}\${folder}\"
                      COMMAND_ERROR_IS_FATAL ANY)
    endforeach()" COMPONENT ${component})
endfunction()
install_folders(program ${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_MANDIR}/man1 ${CMAKE_INSTALL_MANDIR}/man5
                ${examples_dir})
install_folders(development ${CMAKE_INSTALL_INCLUDEDIR} ${package_dir} ${CMAKE_INSTALL_LIBDIR}/pkgconfig
                ${CMAKE_INSTALL_MANDIR}/man3 ${examples_dir})
if(BUILD_SHARED_LIBS)
  install_folders(program ${CMAKE_INSTALL_LIBDIR})
endif()

install(TARGETS badgemint EXPORT badgemintTargets
        RUNTIME COMPONENT program
        LIBRARY COMPONENT program NAMELINK_COMPONENT development
        ARCHIVE COMPONENT development
        FILE_SET HEADERS COMPONENT development)
install(TARGETS badgemint_program RUNTIME COMPONENT program)
if(TARGET badgemint_admin_program)
  install(TARGETS badgemint_admin_program RUNTIME COMPONENT program)
  # The completion is printed by the program itself.
  set(completion ${PROJECT_BINARY_DIR}/completions/badgemint-admin)
  add_custom_command(OUTPUT ${completion} DEPENDS badgemint_admin_program
                     COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/completions
                     COMMAND badgemint_admin_program completion >${completion})
  add_custom_target(completion ALL DEPENDS ${completion})
  set(completions_dir ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install_folders(program ${completions_dir})
  install(FILES ${completion} DESTINATION ${completions_dir} COMPONENT program)
endif()
# The folders of the headers, with the modes of those in the build folder.
install(DIRECTORY ${PROJECT_BINARY_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT development FILES_MATCHING PATTERN "*.h" EXCLUDE)
install(EXPORT badgemintTargets NAMESPACE badgemint:: DESTINATION ${package_dir}
        COMPONENT development)
configure_package_config_file(cmake/badgemintConfig.cmake.in badgemintConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(badgemintConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/badgemintConfig.cmake
              ${PROJECT_BINARY_DIR}/badgemintConfigVersion.cmake
        DESTINATION ${package_dir} COMPONENT development)

# The pkg-config file finds its tree from where it stands, wherever that was installed or moved to. An
# install folder may also be an absolute path.
file(RELATIVE_PATH pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
cmake_path(APPEND pc_libdir "\${prefix}" "${CMAKE_INSTALL_LIBDIR}")
cmake_path(APPEND pc_includedir "\${prefix}" "${CMAKE_INSTALL_INCLUDEDIR}")
set(pc_static_libs)
if(NOT BUILD_SHARED_LIBS)
  set(pc_static_libs " -lstdc++") # For a program in C.
endif()
configure_file(cmake/badgemint.pc.in badgemint.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/badgemint.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

# The manuals are installed from man/ in the build folder, where the version is filled in.
file(GLOB manuals CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} man/*.[135])
if(NOT TARGET badgemint_admin_program)
  list(FILTER manuals EXCLUDE REGEX badgemint-admin)
endif()
foreach(manual ${manuals})
  configure_file(${manual} ${manual} @ONLY)
  string(REGEX MATCH ".$" section ${manual})
  set(component program)
  if(section EQUAL 3)
    set(component development)
  endif()
  install(FILES ${PROJECT_BINARY_DIR}/${manual} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
          COMPONENT ${component})
endforeach()

install(FILES CHANGELOG.md SECURITY.md docs/results.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
        COMPONENT program)
install(PROGRAMS examples/csv-to-cards DESTINATION ${examples_dir} COMPONENT program)
install(DIRECTORY examples/site examples/mistakes DESTINATION ${examples_dir} COMPONENT program
        PATTERN make-formats EXCLUDE)
install(FILES examples/CMakeLists.txt examples/bitpattern.c examples/dump.c examples/maintain.cpp
        DESTINATION ${examples_dir} COMPONENT development)
