# `cpack` makes a Debian package of what `cmake --install` installs; scripts/check-package tries it.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quenlor-helper-audio)
set(CPACK_PACKAGE_CONTACT "QuenlorHelperAudio <maintainers@quenlor.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Records what the computer plays and the microphone hears")
set(CPACK_PACKAGE_DESCRIPTION "A sidecar that another program starts to make one recording of system audio and
the microphone, mixed, in a WAV file; a recorder for the console; and a tool that completes recordings whose
recorder was killed.")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
# The libraries that the programs were linked with, in the versions that have what they use.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pipewire-pulse | pulseaudio")
include(CPack)
