# cpack runs this when everything is installed below the folders of the packages. Like debhelper, it adds
# changelog and copyright, compresses what Debian wants compressed, and gives all folders the mode 0755.
execute_process(COMMAND date -u -R -d @$ENV{SOURCE_DATE_EPOCH} OUTPUT_VARIABLE date
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(packaging ${CMAKE_CURRENT_LIST_DIR}/../packaging)
foreach(pair program/badgemint development/libbadgemint-dev)
  get_filename_component(component ${pair} DIRECTORY)
  get_filename_component(package ${pair} NAME)
  set(tree ${CPACK_TEMPORARY_DIRECTORY}/${component})
  configure_file(${packaging}/changelog ${tree}/usr/share/doc/${package}/changelog @ONLY)
  configure_file(${packaging}/copyright ${tree}/usr/share/doc/${package}/copyright COPYONLY)
  execute_process(COMMAND sh -c "find . -type d -exec chmod 755 {} + && cd usr/share &&
                    chmod 644 doc/${package}/changelog doc/${package}/copyright &&
                    gzip -9n doc/${package}/changelog man/*/*"
                  WORKING_DIRECTORY ${tree} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
