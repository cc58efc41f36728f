# Headers, libraries, and the files by which a host's build finds them: find_package(orvane) and
# pkg-config. Three components: what a program needs to run, what a host's build needs, the example.
include(CMakePackageConfigHelpers)

set(ORVANE_CMAKE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/orvane)
install(EXPORT orvaneTargets NAMESPACE orvane::
  DESTINATION ${ORVANE_CMAKE_FOLDER} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/orvaneConfig.cmake.in
  ${PROJECT_BINARY_DIR}/orvaneConfig.cmake
  INSTALL_DESTINATION ${ORVANE_CMAKE_FOLDER}
  PATH_VARS CMAKE_INSTALL_LIBEXECDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/orvaneConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/orvaneConfig.cmake
  ${PROJECT_BINARY_DIR}/orvaneConfigVersion.cmake
  DESTINATION ${ORVANE_CMAKE_FOLDER} COMPONENT development)

# From the folder of the pkg-config files to the prefix, so that an installation may be moved.
file(RELATIVE_PATH ORVANE_PC_UP "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" ORVANE_PC_UP ${ORVANE_PC_UP})

# orvane_install_pc(NAME DESCRIPTION LIBS REQUIRES)
function(orvane_install_pc name ORVANE_PC_DESCRIPTION ORVANE_PC_LIBS ORVANE_PC_REQUIRES)
  set(ORVANE_PC_NAME ${name})
  list(JOIN ORVANE_PC_REQUIRES ", " ORVANE_PC_REQUIRES)
  list(JOIN ORVANE_PC_LIBS " " ORVANE_PC_LIBS)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/orvane.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()

# What pkg-config calls the libraries that rooms link, as far as it knows them.
set(pc_of_CURL::libcurl libcurl)
set(pc_of_OpenSSL::Crypto libcrypto)
set(pc_of_SQLite::SQLite3 sqlite3)
set(pc_of_simdjson::simdjson simdjson)
set(flag_of_Boost::url -lboost_url)
set(flag_of_Threads::Threads -pthread)
set(flag_of_dl -ldl)

get_property(rooms GLOBAL PROPERTY ORVANE_ROOMS)
foreach(room ${rooms})
  get_target_property(links ${room} ORVANE_LINKS)
  set(libs -l${room})
  set(requires "")
  if(room STREQUAL orvane_base)
    list(APPEND libs -lorvane_helpers_installed)
  endif()
  foreach(link ${links})
    if(link MATCHES "^orvane::(.*)")
      list(APPEND requires orvane-${CMAKE_MATCH_1})
    elseif(pc_of_${link})
      list(APPEND requires ${pc_of_${link}})
    elseif(flag_of_${link})
      list(APPEND libs ${flag_of_${link}})
    endif()
  endforeach()
  string(REPLACE orvane_ "" name ${room})
  orvane_install_pc(orvane-${name} "${PROJECT_DESCRIPTION}: ${name}" "${libs}" "${requires}")
endforeach()
orvane_install_pc(orvane "${PROJECT_DESCRIPTION}" "-lorvane;-pthread" "")
