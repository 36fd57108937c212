# Run by cpack on the folder that becomes the package: the change log in Debian's form, documents
# compressed as Debian has them, and one date on everything.
set(root ${CPACK_TEMPORARY_DIRECTORY})
set(changelog ${root}/usr/share/doc/${CPACK_PACKAGE_NAME}/changelog)
execute_process(
  COMMAND date --utc --rfc-email --date=@$ENV{SOURCE_DATE_EPOCH}
  OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
execute_process(
  COMMAND awk -v package=${CPACK_PACKAGE_NAME} -v maintainer=${CPACK_PACKAGE_CONTACT} -v date=${date}
    -f ${CMAKE_CURRENT_LIST_DIR}/changelog.awk ${CPACK_QUENLOR_SOURCES}/CHANGELOG.md
  OUTPUT_FILE ${changelog} COMMAND_ERROR_IS_FATAL ANY)
file(CHMOD ${changelog} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
file(GLOB manuals ${root}/usr/share/man/man1/*.1)
execute_process(COMMAND gzip --best --no-name ${changelog} ${manuals} COMMAND_ERROR_IS_FATAL ANY)
execute_process(
  COMMAND find ${root} -exec touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} {} +
  COMMAND_ERROR_IS_FATAL ANY)
