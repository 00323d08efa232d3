# cpack reads this before it makes packages.
if(CPACK_BADGEMINT_SHARED)
  message(FATAL_ERROR "The Debian packages hold the static library: configure with -DBUILD_SHARED_LIBS=OFF.")
endif()
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  set(ENV{SOURCE_DATE_EPOCH} ${CPACK_BADGEMINT_DATE})
endif()
