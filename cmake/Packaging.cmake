# What `cmake --install` installs beside the programs, and what `cpack` makes a Debian package of;
# scripts/check-package tries it.
include(GNUInstallDirs)
set(documentation ${CMAKE_INSTALL_DATAROOTDIR}/doc/quenlor-helper-audio)

install(FILES
  man/QuenlorHelperAudio.1
  man/QuenlorHelperAudioVirtual.1
  man/quenlor-record.1
  man/quenlor-wav-repair.1
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES completion/quenlor-record
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions)
# In the folders of the sources, so that their links to each other hold.
install(FILES docs/protocol.md DESTINATION ${documentation}/docs)
install(DIRECTORY docs/protocol DESTINATION ${documentation}/docs)
install(DIRECTORY examples DESTINATION ${documentation} PATTERN __pycache__ EXCLUDE)
install(FILES cmake/debian/copyright DESTINATION ${documentation})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quenlor-helper-audio)
set(CPACK_PACKAGE_CONTACT "QuenlorHelperAudio <maintainers@quenlor.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Records what the computer plays and the microphone hears")
set(CPACK_PACKAGE_DESCRIPTION "A sidecar that another program starts to make one recording of system
audio and the microphone, mixed, in a WAV file; a recorder for the console;
and a tool that completes recordings whose recorder was killed.")
set(CPACK_STRIP_FILES ON)
# Whatever umask the package is made under.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/debian/Date.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/Documents.cmake)
set(CPACK_QUENLOR_SOURCES ${PROJECT_SOURCE_DIR})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
# The libraries that the programs were linked with, in the versions that have what they use.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pipewire-pulse | pulseaudio")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "nodejs, python3")
include(CPack)
