# What Debian hardens its packages with, for builds that are shipped. The source folder is cut off the
# names of files that end up in a program, so that the folder does not change it.
include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  target_compile_options(quenlor_options INTERFACE
    -fstack-protector-strong -Wformat -Werror=format-security -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
  if(NOT QUENLOR_SANITIZERS)
    target_compile_options(quenlor_options INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    target_link_options(quenlor_options INTERFACE -Wl,-z,relro -Wl,-z,now)
  endif()
endif()
