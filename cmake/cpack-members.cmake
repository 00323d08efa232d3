# cpack runs this on finished packages. The members of such an archive have modes, which cpack takes from
# the umask; packed again in a deterministic way, they always have the same modes.
set(folder ${CPACK_TEMPORARY_DIRECTORY}/members)
file(MAKE_DIRECTORY ${folder})
foreach(package ${CPACK_PACKAGE_FILES})
  execute_process(COMMAND ar x ${package} WORKING_DIRECTORY ${folder} COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE ${package})
  execute_process(COMMAND ar rcD ${package} debian-binary control.tar.gz data.tar.gz
                  WORKING_DIRECTORY ${folder} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
