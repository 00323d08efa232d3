# cpack runs this when everything stands in the folders of the packages: opens the one folder that it
# made itself, under the umask.
file(GLOB prefixes "${CPACK_TEMPORARY_DIRECTORY}/*${CPACK_PACKAGING_INSTALL_PREFIX}")
file(CHMOD ${prefixes} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
     WORLD_READ WORLD_EXECUTE)
