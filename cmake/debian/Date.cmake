# Read by cpack: dates what it makes by the commit, so that a commit always gives the same package.
# Without git, by the last change to the change log.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND git -C ${CPACK_QUENLOR_SOURCES} log -1 --format=%ct
    OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    file(TIMESTAMP ${CPACK_QUENLOR_SOURCES}/CHANGELOG.md date "%s" UTC)
  endif()
  set(ENV{SOURCE_DATE_EPOCH} ${date})
endif()
